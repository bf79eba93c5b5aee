#include "hosts/console/log_excerpt.h"
#include "tests/support/printing.h"

#include <QTemporaryDir>

#include <card_v_func.h>
#include <gtest/gtest.h>

using namespace console;

TEST(PlainLogLines, stampsBlankLinesAndRepetitions_areLeftOut)
{
    const QString log =
        QStringLiteral("[21 Nov 2026 01:02:03]: Il PIN digitato e' errato.\n\nAttenzione\n\n\n"
                       "[21 nov 2026 01:02:03]: Errore[21 Nov 2026 01:02:03]: Fallito\n"
                       "[21 Nov 2026 01:02:04]: Il PIN digitato e' errato.\n");
    const QStringList expected = {QStringLiteral("Il PIN digitato e' errato."),
                                  QStringLiteral("Attenzione"), QStringLiteral("Errore"),
                                  QStringLiteral("Fallito")};
    EXPECT_EQ(plainLogLines(log), expected);
}

TEST(LogExcerpt, linesBeforeIt_areNotInIt)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    RENEWLOGFILE.setFileName(folder.filePath(QStringLiteral("log")));
    ASSERT_TRUE(RENEWLOGFILE.open(QIODevice::Append | QIODevice::Text));
    outLogFile.setDevice(&RENEWLOGFILE);
    outLogFile << "before\n";

    const LogExcerpt excerpt;
    EXPECT_TRUE(excerpt.lines().isEmpty());
    outLogFile << "after\n";

    EXPECT_EQ(excerpt.lines(), QStringList{QStringLiteral("after")});
    noteLogPlace();
    EXPECT_EQ(notedLogPlace(), RENEWLOGFILE.fileName());
    outLogFile.setDevice(nullptr);
    RENEWLOGFILE.close();
    noteLogPlace();
    EXPECT_EQ(notedLogPlace(), QStringLiteral("standard output"));
}
