#include "inventory/validity_dates.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

// The quick way for eight digits must not differ from the conversion by pattern that it replaces.
TEST(LeadingDate, anyEightCharacters_areReadAsByThePattern)
{
    constexpr unsigned seed = 20260116;
    const std::string alphabet = "0123456789 -+.Zy";
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::size_t> letter(0, alphabet.size() - 1);
    std::uniform_int_distribution<int> offset(0, 60000);
    std::uniform_int_distribution<int> changes(0, 3);
    std::uniform_int_distribution<int> place(0, 7);
    int valid = 0;
    for (int i = 0; i < 20000; ++i) {
        QString text =
            QDate(1900, 1, 1).addDays(offset(random)).toString(QStringLiteral("yyyyMMdd"));
        for (int change = changes(random); change > 0; --change) {
            text[place(random)] = QLatin1Char(alphabet[letter(random)]);
        }
        const QDate expected = QDate::fromString(text, QStringLiteral("yyyyMMdd"));
        ASSERT_EQ(inventory::leadingDate(text + QStringLiteral("235959Z")), expected)
            << text.toStdString();
        valid += expected.isValid() ? 1 : 0;
    }
    EXPECT_GT(valid, 1000);
}

TEST(LeadingDate, shortOrForeignText_isNoDate)
{
    // Arabic-Indic digits for the year.
    const QString foreign =
        QString::fromUtf8("\xD9\xA2\xD9\xA0\xD9\xA2\xD9\xA6") + QStringLiteral("1121");
    for (const QString& text : {QString(), QStringLiteral("2026112"), QStringLiteral("99999999"),
                                QStringLiteral("20260230"), foreign}) {
        EXPECT_FALSE(inventory::leadingDate(text).isValid()) << text.toStdString();
    }
}

struct RenewalRow {
    QDate notAfter;
    QDate today;
    const char* renewed;
};

TEST(RenewedNotAfter, threeYearsAndTheDaysStillLeft_areAddedToTheOldEnd)
{
    const RenewalRow rows[]{
        {{2027, 1, 15}, {2027, 1, 5}, "20300125000000"},
        {{2027, 1, 15}, {2027, 1, 15}, "20300115000000"},
        // 29 February does not exist three years on.
        {{2024, 2, 29}, {2024, 2, 1}, "20270328000000"},
        {{2024, 2, 29}, {2024, 2, 29}, "20270228000000"},
        {{2026, 12, 31}, {2026, 10, 1}, "20300401000000"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(inventory::renewedNotAfter(row.notAfter, row.today).toStdString(), row.renewed);
    }
}

}  // namespace
