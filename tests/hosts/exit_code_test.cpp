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
        EXPECT_NE(QString::fromUtf8(entry.meaning), QString());
        ++expected;
    }
    EXPECT_EQ(expected, static_cast<int>(ExitCode::fileFailed) + 1);
}

TEST(ExitCodes, everyFailure_saysWhatToDoNext)
{
    for (const ExitCodeEntry& entry : exitCodes()) {
        SCOPED_TRACE(entry.name);
        const bool needsNothing =
            entry.code == ExitCode::renewed || entry.code == ExitCode::declined;
        EXPECT_EQ(QString::fromUtf8(entry.nextStep).isEmpty(), needsNothing);
    }
}

TEST(Stop, ownAdvice_replacesThatOfTheTable)
{
    EXPECT_EQ(Stop(ExitCode::noReader).nextStep(),
              QString::fromUtf8(entryOf(ExitCode::noReader).nextStep));
    const Stop stop(ExitCode::noReader, QStringLiteral("Detail."), QStringLiteral("Advice."));
    EXPECT_EQ(stop.nextStep(), QStringLiteral("Advice."));
    EXPECT_EQ(stop.detail(), QStringLiteral("Detail."));
    EXPECT_STREQ(stop.what(), entryOf(ExitCode::noReader).meaning);
}
