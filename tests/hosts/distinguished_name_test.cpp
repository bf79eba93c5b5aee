#include "hosts/console/distinguished_name.h"
#include "tests/support/printing.h"

#include <gtest/gtest.h>

using namespace console;

TEST(DistinguishedName, escapedSeparators_stayInTheValue)
{
    const auto attributes = parseDistinguishedName(
        QStringLiteral("2.5.4.6=IT,2.5.4.10=Rossi\\, Verdi \\+ C\\2e\\23,2.5.4.3=A\\\\B"));
    ASSERT_EQ(attributes.size(), 3U);
    EXPECT_EQ(attributes[1].type, QStringLiteral("2.5.4.10"));
    EXPECT_EQ(attributes[1].value, QStringLiteral("Rossi, Verdi + C.#"));
    EXPECT_EQ(attributes[2].value, QStringLiteral("A\\B"));
}

TEST(DistinguishedName, multiValuedPart_givesEachAttribute)
{
    const auto attributes = parseDistinguishedName(QStringLiteral("2.5.4.4=Verdi+2.5.4.42=Ada"));
    ASSERT_EQ(attributes.size(), 2U);
    EXPECT_EQ(attributes[0].value, QStringLiteral("Verdi"));
    EXPECT_EQ(attributes[1].type, QStringLiteral("2.5.4.42"));
}

TEST(DistinguishedName, hexEscapedUtf8_isDecoded)
{
    const auto attributes = parseDistinguishedName(QStringLiteral("2.5.4.3=Niccol\\C3\\B2"));
    ASSERT_EQ(attributes.size(), 1U);
    EXPECT_EQ(attributes[0].value, QStringLiteral("Niccol\u00f2"));
}

TEST(DistinguishedName, malformedText_givesNothingAndKeepsTheEnd)
{
    EXPECT_TRUE(parseDistinguishedName(QString()).empty());
    EXPECT_TRUE(parseDistinguishedName(QStringLiteral("no equals sign,=x")).empty());
    const auto attributes = parseDistinguishedName(QStringLiteral("2.5.4.3=end\\"));
    ASSERT_EQ(attributes.size(), 1U);
    EXPECT_EQ(attributes[0].value, QStringLiteral("end\\"));
}

TEST(DisplayName, attributesPresent_theBestIsShown)
{
    struct Row {
        const char* name;
        const char* shown;
    };
    const Row rows[] = {
        {"2.5.4.6=IT,2.5.4.4=Verdi,2.5.4.42=Ada,2.5.4.3=VERDI ADA", "VERDI ADA"},
        {"2.5.4.6=IT,2.5.4.4=Verdi,2.5.4.42=Ada,2.5.4.10=Org", "Ada Verdi"},
        {"2.5.4.6=IT,2.5.4.4=Verdi,2.5.4.10=Org", "Verdi"},
        {"2.5.4.6=IT,2.5.4.10=Org", "Org"},
        {"2.5.4.6=IT", "2.5.4.6=IT"},
        {"castelvane-norbelta", "castelvane-norbelta"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(displayName(QString::fromUtf8(row.name)), QString::fromUtf8(row.shown));
    }
}
