#include "tests/support/session_fixture.h"
#include "tests/support/transcript.h"

#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

using namespace support;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class InitRenewSystem : public SessionTest {};

TEST_F(InitRenewSystem, folderMissing_createsItAndWritesTheBanner)
{
    startAt(2027, 1, 5, 8, 5, 22);
    init_renew_system(&context);
    EXPECT_TRUE(std::filesystem::is_directory(home + "/.brisko"));
    EXPECT_EQ(wholeLog(), banner("05/01/2027 ore 08:05"));
}

TEST_F(InitRenewSystem, timeStamp_isDayMonthNameYearTime)
{
    startAt(2027, 1, 5, 8, 5, 22);
    init_renew_system(&context);
    outLogFile.flush();
    const std::string log = fileContents(logPath());
    EXPECT_THAT(log, StartsWith("[05 Jan 2027 08:05:2"));
    EXPECT_THAT(log.substr(21, 3), "]: ");
}

TEST_F(InitRenewSystem, afternoon_hoursCountTo24)
{
    startAt(2026, 11, 16, 20, 5, 0);
    init_renew_system(&context);
    EXPECT_EQ(wholeLog(), banner("16/11/2026 ore 20:05"));
    EXPECT_THAT(fileContents(logPath()), StartsWith("[16 Nov 2026 20:05:0"));
}

TEST_F(InitRenewSystem, italianLocale_monthIsItalian)
{
    if (qgetenv("LC_ALL") != "it_IT.UTF-8") {
        const Outcome italian =
            runAgain({"--gtest_filter=InitRenewSystem.italianLocale_monthIsItalian"},
                     {"LC_ALL=it_IT.UTF-8"});
        EXPECT_EQ(italian.exitCode, 0) << italian.output;
        EXPECT_THAT(italian.output, HasSubstr("[  PASSED  ] 1 test."));
        return;
    }
    startAt(2027, 5, 16, 8, 5, 22);
    init_renew_system(&context);
    outLogFile.flush();
    EXPECT_THAT(fileContents(logPath()), StartsWith("[16 mag 2027 08:05:2"));
}

TEST_F(InitRenewSystem, endOfLineWithFlushOnly_flushes)
{
    startSession();
    free_renew_system(&context);
    std::filesystem::remove(logPath());
    init_renew_system(&context);
    EXPECT_EQ(maskStamps(fileContents(logPath())), "[*]: Inizializazione del tool\n");
}

TEST_F(InitRenewSystem, always_setsTheTablePathAndTheLogFile)
{
    init_renew_system(&context);
    EXPECT_EQ(ATRini.toStdString(), atrTable());
    EXPECT_EQ(RENEWLOGFILE.fileName().toStdString(), logPath());
    EXPECT_EQ(outLogFile.device(), &RENEWLOGFILE);
    EXPECT_TRUE(BriskoSettingFile.isNull());
}

TEST_F(InitRenewSystem, qtApplicationPresent_applicationFolderIsThatOfTheExecutable)
{
    int count = 1;
    char name[] = "/somewhere/else/host";
    char* arguments[] = {name, nullptr};
    const QCoreApplication application(count, arguments);
    init_renew_system(&context);
    EXPECT_EQ(ATRini.toStdString(), atrTable());
    EXPECT_EQ(context[renew_context::settingsRow][renew_context::hostFolder].toStdString(),
              applicationFolder());
}

TEST_F(InitRenewSystem, otherWorkingFolder_pathsStay)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path("/");
    init_renew_system(&context);
    std::filesystem::current_path(before);
    EXPECT_EQ(ATRini.toStdString(), atrTable());
}

TEST_F(InitRenewSystem, configuration_givesTheReader)
{
    struct Row {
        const char* condition;
        const char* contents;  // null: no file
        const char* reader;    // null: the key is absent
    };
    const Row table[] = {
        {"no file", nullptr, nullptr},
        {"empty file", "", nullptr},
        {"no key", "other=1\n", nullptr},
        {"empty value", "reader=\n", nullptr},
        {"empty quoted value", "reader=\"\"\n", nullptr},
        {"at top level", "reader=Lettore USB 00 00\n", "Lettore USB 00 00"},
        {"in the General section", "[General]\nreader=Lettore 1\n", "Lettore 1"},
        {"in another section", "[Altro]\nreader=Lettore 1\n", nullptr},
        {"quoted, with a comma", "reader=\"Lettore, 1\"\n", "Lettore, 1"},
        {"not ASCII", "reader=Lettore nuovo \\xe0\n", "Lettore nuovo \xc3\xa0"},
        {"not an INI file", "\x01\x02 [[[ nothing\n", nullptr},
    };
    std::filesystem::create_directory(home + "/.brisko");
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        std::filesystem::remove(configurationPath());
        if (row.contents != nullptr)
            writeFile(configurationPath(), row.contents);
        context.clear();
        init_renew_system(&context);
        PlainRecord settings{{"p11_library_path", applicationFolder()}};
        if (row.reader != nullptr)
            settings["Reader"] = row.reader;
        EXPECT_EQ(plain(context), (PlainContext{{"SettingsApplicazione", settings}}));
        EXPECT_EQ(std::filesystem::exists(configurationPath()), row.contents != nullptr);
        if (row.contents != nullptr) {
            EXPECT_EQ(fileContents(configurationPath()), row.contents);
        }
    }
}

TEST_F(InitRenewSystem, logOfExactlyOneMillionBytes_isKept)
{
    std::filesystem::create_directory(home + "/.brisko");
    const std::string old(1000000, 'x');
    writeFile(logPath(), old);
    startAt(2027, 1, 5, 8, 5, 22);
    init_renew_system(&context);
    EXPECT_EQ(wholeLog(), old + banner("05/01/2027 ore 08:05"));
}

TEST_F(InitRenewSystem, logOfOneByteMore_isEmptied)
{
    std::filesystem::create_directory(home + "/.brisko");
    writeFile(logPath(), std::string(1000001, 'x'));
    startAt(2027, 1, 5, 8, 5, 22);
    init_renew_system(&context);
    EXPECT_EQ(wholeLog(), banner("05/01/2027 ore 08:05"));
}

TEST_F(InitRenewSystem, secondCall_dropsThePinAndWritesASecondBanner)
{
    startAt(2027, 1, 5, 8, 5, 22);
    init_renew_system(&context);
    setting(renew_context::pin, QStringLiteral("12345678"));
    setting(renew_context::reader, QStringLiteral("Lettore"));
    context[QStringLiteral("AUT: 1")][renew_context::iut] = QStringLiteral("1");
    init_renew_system(&context);
    EXPECT_EQ(wholeLog(), banner("05/01/2027 ore 08:05") + banner("05/01/2027 ore 08:05"));
    EXPECT_EQ(plain(context),
              (PlainContext{{"SettingsApplicazione", {{"p11_library_path", applicationFolder()}}},
                            {"AUT: 1", {{"iut", "1"}}}}));
}

TEST_F(InitRenewSystem, homeChanged_secondCallWritesIntoTheNewHome)
{
    startAt(2027, 1, 5, 8, 5, 22);
    init_renew_system(&context);
    const std::string oldLog = wholeLog();
    const std::string oldPath = logPath();
    moveHome(makeFolder("other home"));
    init_renew_system(&context);
    EXPECT_EQ(wholeLog(), banner("05/01/2027 ore 08:05"));
    EXPECT_EQ(maskStamps(fileContents(oldPath)), oldLog);
}

TEST_F(InitRenewSystem, nameAndVersionChangedByTheHost_bannerShowsThem)
{
    nomeLibreria = QStringLiteral("Altro");
    versioneLibreria = QStringLiteral("9.9");
    init_renew_system(&context);
    EXPECT_THAT(wholeLog(), HasSubstr("[*]: Nome Libreria di Rinnovo: Altro\n\n"
                                      "[*]: Versione Libreria di Rinnovo: 9.9\n\n"));
}

class FreeRenewSystem : public LibraryTest {};

TEST_F(FreeRenewSystem, context_isEmptiedAndTheLogClosed)
{
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    for (int i = 0; i < 50; ++i)
        context[renew_context::rowKey(renew_context::autRowPrefix, i)][renew_context::iut] =
            QString::number(i);
    outLogFile << "not flushed";
    free_renew_system(&context);
    EXPECT_EQ(plain(context), PlainContext{});
    EXPECT_FALSE(RENEWLOGFILE.isOpen());
    EXPECT_EQ(logOnDisk(), "not flushed");
}

TEST_F(FreeRenewSystem, emptyContext_onlyClosesTheLog)
{
    startSession();
    context.clear();
    free_renew_system(&context);
    EXPECT_EQ(plain(context), PlainContext{});
    EXPECT_FALSE(RENEWLOGFILE.isOpen());
    EXPECT_EQ(logOnDisk(), "");
}

TEST_F(FreeRenewSystem, noSession_doesNothing)
{
    context[QStringLiteral("AUT: 1")] = {};
    free_renew_system(&context);
    EXPECT_TRUE(context.isEmpty());
    EXPECT_FALSE(std::filesystem::exists(home + "/.brisko"));
}

TEST_F(FreeRenewSystem, processVariables_keepTheirValues)
{
    startSession();
    ErrorMessage = QStringLiteral("testo");
    fiscalCode = QStringLiteral("CODICE");
    rows = 3;
    isCNS = true;
    pendingLabel_PRA[0] = 'D';
    free_renew_system(&context);
    EXPECT_EQ(ATRini.toStdString(), atrTable());
    EXPECT_EQ(ErrorMessage, QStringLiteral("testo"));
    EXPECT_EQ(fiscalCode, QStringLiteral("CODICE"));
    EXPECT_EQ(rows, 3);
    EXPECT_TRUE(isCNS);
    EXPECT_STREQ(pendingLabel_PRA, "D");
}

TEST_F(FreeRenewSystem, secondCall_isHarmless)
{
    startSession();
    free_renew_system(&context);
    free_renew_system(&context);
    EXPECT_EQ(logOnDisk(), "");
}

}  // namespace
