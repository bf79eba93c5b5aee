#include "hosts/console/text_layout.h"
#include "tests/support/printing.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <clocale>

using namespace console;

namespace {

class TextLayout : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
    void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

}  // namespace

TEST_F(TextLayout, controlCharactersInName_becomeQuestionMarks)
{
    EXPECT_EQ(printable(QStringLiteral("Ada\u001b[2J\n\u0007\u202eVerdi")),
              QStringLiteral("Ada?[2J???Verdi"));
    EXPECT_EQ(printable(QStringLiteral("Niccol\u00f2 D'Ambr\u00e0")),
              QStringLiteral("Niccol\u00f2 D'Ambr\u00e0"));
}

TEST_F(TextLayout, wideAndCombiningCharacters_countTheirColumns)
{
    EXPECT_EQ(displayWidth(QStringLiteral("abc")), 3);
    EXPECT_EQ(displayWidth(QStringLiteral("\u00e0")), 1);
    EXPECT_EQ(displayWidth(QStringLiteral("a\u0300")), 1);
    EXPECT_EQ(displayWidth(QStringLiteral("\u6f22\u5b57")), 4);
}

TEST_F(TextLayout, anyText_isFittedToTheColumns)
{
    const QStringList texts = {
        QString(),
        QStringLiteral("a"),
        QStringLiteral("exactly8"),
        QStringLiteral("nine char"),
        QStringLiteral("\u6f22\u5b57\u6f22\u5b57\u6f22\u5b57"),
        QStringLiteral("\U0001F600\U0001F600\U0001F600\U0001F600\U0001F600")};
    for (const QString& text : texts) {
        SCOPED_TRACE(text.toStdString());
        const QString cell = fitted(text, 8);
        EXPECT_EQ(displayWidth(cell), 8);
        EXPECT_EQ(cell.contains(QStringLiteral("..")), displayWidth(text) > 8);
        EXPECT_TRUE(cell.startsWith(text.left(1)));
    }
}

TEST_F(TextLayout, longSentence_isBrokenAtBlanks)
{
    const QString sentence = QStringLiteral("word ").repeated(60).trimmed();
    const QStringList lines = wrapped(sentence, 4).split(QLatin1Char('\n'));
    ASSERT_GT(lines.size(), 3);
    for (const QString& line : lines) {
        EXPECT_LT(displayWidth(line), screenWidth);
        EXPECT_TRUE(line.startsWith(QStringLiteral("    word")));
    }
    EXPECT_EQ(lines.join(QLatin1Char(' ')).simplified(), sentence);
}

TEST_F(TextLayout, wordLongerThanTheScreen_staysWhole)
{
    const QString path = QString(120, QLatin1Char('x'));
    EXPECT_EQ(wrapped(QStringLiteral("in ") + path), QStringLiteral("in\n") + path);
}

TEST_F(TextLayout, ownLineBreaks_areKept)
{
    EXPECT_EQ(wrapped(QStringLiteral("one\n\ntwo"), 2), QStringLiteral("  one\n\n  two"));
}
