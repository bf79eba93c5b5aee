#include "hosts/console/exit_code.h"
#include "tests/support/printing.h"

#include <QSet>

#include <gtest/gtest.h>

using namespace console;

TEST(ExitCodes, table_hasEveryCodeOnceInOrder)
{
    QSet<QString> names;
    int expected = 0;
    for (const ExitCodeEntry& entry : exitCodes()) {
        SCOPED_TRACE(entry.name);
        EXPECT_EQ(static_cast<int>(entry.code), expected);
        EXPECT_FALSE(names.contains(QString::fromUtf8(entry.name)));
        names.insert(QString::fromUtf8(entry.name));
        EXPECT_FALSE(entry.meaning.in(Language::english).isEmpty());
        EXPECT_FALSE(entry.meaning.in(Language::italian).isEmpty());
        ++expected;
    }
    EXPECT_EQ(expected, static_cast<int>(ExitCode::authorityRefused) + 1);
}

TEST(ExitCodes, everyFailure_saysWhatToDoNext)
{
    for (const ExitCodeEntry& entry : exitCodes()) {
        SCOPED_TRACE(entry.name);
        const bool needsNothing = entry.code == ExitCode::done || entry.code == ExitCode::declined;
        EXPECT_EQ(entry.nextStep.has_value(), !needsNothing);
    }
}

TEST(Stop, ownAdvice_replacesThatOfTheTable)
{
    EXPECT_EQ(Stop(ExitCode::noReader).nextStep(), entryOf(ExitCode::noReader).nextStep->string());
    const Stop stop(ExitCode::noReader, QStringLiteral("Detail."), QStringLiteral("Advice."));
    EXPECT_EQ(stop.nextStep(), QStringLiteral("Advice."));
    EXPECT_EQ(stop.detail(), QStringLiteral("Detail."));
    EXPECT_STREQ(stop.what(), "no-reader");
}
