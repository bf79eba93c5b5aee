#include "tests/support/session_fixture.h"
#include "tests/support/transcript.h"

#include <QDateTime>
#include <QLocale>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

using namespace support;
using testing::StartsWith;

namespace {

class LogWithoutHome : public SessionTest {
protected:
    // Runs a whole session and gives what standard output saw of it.
    std::string sessionOutput()
    {
        StandardOutput output;
        startAt(2027, 1, 5, 8, 5, 22);
        init_renew_system(&context);
        free_renew_system(&context);
        return maskStamps(output.text());
    }
};

TEST_F(LogWithoutHome, homeCannotBeWritten_logGoesToStandardOutput)
{
    struct Row {
        const char* condition;
        std::string home;
    };
    writeFile(runFolder() + "/regular file", "");
    const Row table[] = {
        {"the parent is a regular file", runFolder() + "/regular file/home"},
        {"the home folder is missing", runFolder() + "/missing/home"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        moveHome(row.home);
        EXPECT_EQ(sessionOutput(), banner("05/01/2027 ore 08:05"));
        EXPECT_FALSE(std::filesystem::exists(home));
    }
}

TEST_F(LogWithoutHome, userFolderIsAFile_logGoesToStandardOutput)
{
    writeFile(home + "/.brisko", "mine");
    EXPECT_EQ(sessionOutput(), banner("05/01/2027 ore 08:05"));
    EXPECT_EQ(fileContents(home + "/.brisko"), "mine");
}

TEST_F(LogWithoutHome, logPathIsAFolder_logGoesToStandardOutput)
{
    std::filesystem::create_directories(logPath());
    EXPECT_EQ(sessionOutput(), banner("05/01/2027 ore 08:05"));
}

TEST_F(LogWithoutHome, sessionEnded_standardOutputStaysOpen)
{
    moveHome(runFolder() + "/missing/home");
    StandardOutput output;
    init_renew_system(&context);
    free_renew_system(&context);
    output.text();
    EXPECT_EQ(write(STDOUT_FILENO, "still here", 10), 10);
    EXPECT_EQ(output.text(), "still here");
}

TEST_F(LogWithoutHome, homeBackAtTheNextSession_logGoesToTheFileAgain)
{
    const std::string goodHome = home;
    moveHome(runFolder() + "/missing/home");
    sessionOutput();
    moveHome(goodHome);
    EXPECT_EQ(sessionOutput(), "");
    EXPECT_EQ(wholeLog(), banner("05/01/2027 ore 08:05"));
}

class RenewalLog : public LibraryTest {
protected:
    void logOneLine()
    {
        extendScript({call("mvGetReaderName").returning(-1)});
        EXPECT_FALSE(set_reader(&context, QString()));
    }

    std::string lastLine() const
    {
        const std::string log = fileContents(logPath());
        return log.substr(log.rfind('\n', log.size() - 2) + 1);
    }
};

TEST_F(RenewalLog, noSession_linesGoNowhere)
{
    StandardOutput output;
    logOneLine();
    EXPECT_EQ(output.text(), "");
    EXPECT_FALSE(std::filesystem::exists(home + "/.brisko"));
}

TEST_F(RenewalLog, sessionEnded_linesGoNowhere)
{
    startSession();
    free_renew_system(&context);
    StandardOutput output;
    logOneLine();
    outLogFile << "late";
    outLogFile.flush();
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(logOnDisk(), "");
}

TEST_F(RenewalLog, timePasses_everyLineHasItsOwnStamp)
{
    struct Row {
        const char* condition;
        QDateTime moment;
        const char* stamp;
    };
    const auto at = [](int year, int month, int day, int hour, int minute) {
        return QDateTime(QDate(year, month, day), QTime(hour, minute, 10));
    };
    const Row table[] = {
        {"evening", at(2027, 2, 28, 23, 59), "[28 Feb 2027 23:59:1"},
        {"next day", at(2027, 3, 1, 0, 0), "[01 Mar 2027 00:00:1"},
        {"before summer time", at(2027, 3, 28, 1, 59), "[28 Mar 2027 01:59:1"},
        {"summer time", at(2027, 3, 28, 3, 0), "[28 Mar 2027 03:00:1"},
        {"after summer time", at(2027, 10, 31, 4, 30), "[31 Oct 2027 04:30:1"},
        {"leap day", at(2028, 2, 29, 12, 0), "[29 Feb 2028 12:00:1"},
        {"clock set back", at(2026, 12, 31, 23, 59), "[31 Dec 2026 23:59:1"},
    };
    startSession();
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setLocalTime(row.moment);
        logOneLine();
        EXPECT_THAT(lastLine(), StartsWith(row.stamp));
        EXPECT_THAT(lastLine().substr(21), "]: Nessun lettore trovato...\n");
    }
}

TEST_F(RenewalLog, hostChangesTheZone_stampsFollow)
{
    const QByteArray zoneOfTheTests = qgetenv("TZ");
    startSession();
    for (const char* zone : {"UTC0", "EST5EDT,M3.2.0,M11.1.0", "<+1345>-13:45", "", "Asia/Tokyo",
                             static_cast<const char*>(nullptr), "CET-1CEST,M3.5.0,M10.5.0/3"}) {
        SCOPED_TRACE(zone != nullptr ? zone : "unset");
        if (zone != nullptr)
            qputenv("TZ", zone);
        else
            qunsetenv("TZ");
        for (const char* monthAndDay : {"0705", "1231"}) {
            setLocalTime(QDateTime::fromString(QStringLiteral("2027") + QLatin1String(monthAndDay) +
                                                   QStringLiteral("233000"),
                                               QStringLiteral("yyyyMMddhhmmss")));
            const QDateTime before = QDateTime::currentDateTime();
            logOneLine();
            const QString shown = QString::fromStdString(lastLine().substr(1, 20));
            const QDateTime moment =
                QLocale::system().toDateTime(shown, QStringLiteral("dd MMM yyyy hh:mm:ss"));
            EXPECT_LE(before.secsTo(moment), 2) << shown.toStdString();
            EXPECT_GE(before.secsTo(moment), -1) << shown.toStdString();
        }
    }
    qputenv("TZ", zoneOfTheTests);
}

TEST_F(RenewalLog, hostWritesToo_textsKeepTheirOrder)
{
    startSession();
    outLogFile << "host 1\n";
    logOneLine();
    outLogFile << "host 2\n";
    EXPECT_EQ(log(), "host 1\n[*]: Nessun lettore trovato...\nhost 2\n");
}

TEST_F(RenewalLog, manyLines_allAreThere)
{
    startSession();
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        logOneLine();
        expected += "[*]: Nessun lettore trovato...\n";
    }
    EXPECT_EQ(log(), expected);
}

}  // namespace
