#include "tests/support/descriptor.h"
#include "tests/support/library_fixture.h"

#include <QDate>

#include <gtest/gtest.h>

using namespace support;

namespace {

const std::string conversionError =
    "[*]: addRemainingDaysToNotAfter\n[*]: Errore nella conversione della data\n";
const std::string expiredError =
    "[*]: addRemainingDaysToNotAfter\n[*]: Attenzione! il certificato e' scaduto!\n";

class ValidityDates : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        startSession();
    }

    // The result for this notAfter; the record must stay as it is, the log must say this.
    std::string newEnd(const std::string& notAfter, const std::string& expectedLines)
    {
        const std::string before = log();
        RenewRecord record{{renew_context::notAfter, QString::fromStdString(notAfter)},
                           {renew_context::iut, QStringLiteral("1")}};
        const PlainRecord unchanged = plain(record);
        const QString result = addRemainingDaysToNotAfter(record);
        EXPECT_EQ(plain(record), unchanged);
        EXPECT_EQ(log(), before + expectedLines);
        return result.toStdString();
    }

    static void setToday(int year, int month, int day, int hour = 12, int minute = 0)
    {
        setLocalTime(QDateTime(QDate(year, month, day), QTime(hour, minute)));
    }
};

TEST_F(ValidityDates, datesWithToday_threeYearsAndTheDaysLeftAreAdded)
{
    struct Row {
        const char* condition;
        QDate today;
        const char* notAfter;
        const char* result;
    };
    const Row table[] = {
        {"ten days left", {2027, 1, 5}, "20270115000000", "20300125000000"},
        {"with the Z", {2027, 1, 5}, "20270115000000Z", "20300125000000"},
        {"today", {2027, 1, 15}, "20270115000000", "20300115000000"},
        {"one day left", {2027, 1, 14}, "20270115000000", "20300116000000"},
        {"leap day", {2024, 2, 1}, "20240229000000", "20270328000000"},
        {"leap day itself is today", {2024, 2, 29}, "20240229000000", "20270228000000"},
        {"across a leap day", {2027, 12, 1}, "20280301000000", "20310531000000"},
        {"end of the year", {2026, 12, 30}, "20270102000000", "20300105000000"},
        {"a long way off", {2027, 1, 5}, "20370105000000", "20500105000000"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setToday(row.today.year(), row.today.month(), row.today.day());
        const QDate end = QDate::fromString(QString::fromLatin1(row.notAfter).left(8),
                                            QStringLiteral("yyyyMMdd"));
        const QString independent = end.addYears(3)
                                        .addDays(row.today.daysTo(end))
                                        .toString(QStringLiteral("yyyyMMdd000000"));
        const std::string result = newEnd(row.notAfter, "");
        EXPECT_EQ(result, independent.toStdString());
        EXPECT_EQ(result, row.result);
    }
}

TEST_F(ValidityDates, realToday_resultMovesWithIt)
{
    for (const int days : {0, 1, 30, 91, 92, 400}) {
        SCOPED_TRACE(days);
        const QDate end = QDate::currentDate().addDays(days);
        EXPECT_EQ(
            newEnd(inDays(days), ""),
            end.addYears(3).addDays(days).toString(QStringLiteral("yyyyMMdd000000")).toStdString());
    }
}

TEST_F(ValidityDates, dayAfterTheEnd_isExpired)
{
    EXPECT_EQ(newEnd(inDays(-1), expiredError), "");
    EXPECT_EQ(newEnd(inDays(-4000), expiredError), "");
}

TEST_F(ValidityDates, endOfValidityIsALocalDay)
{
    // The zone of the tests is one or two hours ahead of UTC, where it is still the day before.
    setToday(2027, 1, 16, 0, 30);
    EXPECT_EQ(newEnd("20270115000000", expiredError), "");
    setToday(2027, 1, 15, 23, 50);
    EXPECT_EQ(newEnd("20270115000000", ""), "20300115000000");
}

TEST_F(ValidityDates, formOfTheText_decidesWhetherItConverts)
{
    setToday(2027, 1, 5);
    struct Row {
        const char* condition;
        const char* notAfter;
    };
    const Row unreadable[] = {
        {"with a time of day", "20270115235959Z"},
        {"with a time of day, no Z", "20270115235959"},
        {"date alone", "20270115"},
        {"empty", ""},
        {"not a date", "mai"},
        {"no such day", "20270230000000"},
        {"no such month", "20271301000000"},
        {"29 February of a common year", "20270229000000"},
        {"something behind", "20270115000000ZZ"},
        {"blank before", " 20270115000000"},
        {"lower-case z", "20270115000000z"},
        {"two-digit year with figures for the time", "270115000000Z"},
        {"not ASCII", "2027\xc3\xa0"},
    };
    for (const Row& row : unreadable) {
        SCOPED_TRACE(row.condition);
        EXPECT_EQ(newEnd(row.notAfter, conversionError), "");
    }
}

TEST_F(ValidityDates, letteredPatterns_takeTheLettersLiterally)
{
    setToday(2027, 1, 5);
    EXPECT_EQ(newEnd("20270115hhmmssZ", ""), "20300125000000");
    EXPECT_EQ(newEnd("20270115hhmmss", ""), "20300125000000");
    // Two-digit years lie in the 1900s.
    EXPECT_EQ(newEnd("270115hhmmssZ", expiredError), "");
    EXPECT_EQ(newEnd("270115hhmmss", expiredError), "");
}

TEST_F(ValidityDates, notAfterMissing_isAConversionError)
{
    RenewRecord record;
    EXPECT_EQ(addRemainingDaysToNotAfter(record), QString());
    EXPECT_TRUE(record.isEmpty());
    EXPECT_EQ(log(), conversionError);
}

TEST_F(ValidityDates, failure_leavesTheProcessVariables)
{
    ErrorMessage = QStringLiteral("from before");
    ErrorCode = 7;
    newEnd("mai", conversionError);
    newEnd("20000101000000", expiredError);
    EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
    EXPECT_EQ(ErrorCode, 7);
}

}  // namespace
