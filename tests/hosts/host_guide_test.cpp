#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QString>

#include <gtest/gtest.h>

namespace {

QString textOf(const char* file)
{
    QFile source(QStringLiteral(TARVELOQT_SOURCE_DIR "/") + QString::fromUtf8(file));
    EXPECT_TRUE(source.open(QIODevice::ReadOnly)) << file;
    return QString::fromUtf8(source.readAll());
}

QSet<QString> captured(const QString& text, const char* pattern)
{
    QSet<QString> found;
    auto match = QRegularExpression(QString::fromUtf8(pattern)).globalMatch(text);
    while (match.hasNext()) {
        found.insert(match.next().captured(1));
    }
    return found;
}

void expectAllNamed(const QSet<QString>& names, int atLeast)
{
    const QString guide = textOf("docs/host-guide.md");
    EXPECT_GE(names.size(), atLeast);
    for (const QString& name : names) {
        EXPECT_TRUE(guide.contains(QStringLiteral("`%1").arg(name)) ||
                    guide.contains(name + QStringLiteral("(&context")))
            << name.toStdString() << " is not in the guide";
    }
}

}  // namespace

TEST(HostGuide, examples_areTheFilesThatAreTested)
{
    for (const char* file : {"docs/examples/minimal_host.cpp", "docs/examples/reader_report.cpp"}) {
        const QString example = textOf(file);
        EXPECT_TRUE(textOf("docs/host-guide.md")
                        .contains(QStringLiteral("```cpp\n") + example + QStringLiteral("```\n")))
            << file;
        EXPECT_LT(example.count(QLatin1Char('\n')), 60) << file;
    }
}

TEST(HostGuide, everyExportedVariable_isExplained)
{
    expectAllNamed(
        captured(textOf("include/card_v_func.h"), R"(TARVELOQT_EXPORT extern [\w*]+ (\w+)[\[;])"),
        42);
}

TEST(HostGuide, everyOperation_isExplained)
{
    expectAllNamed(captured(textOf("include/card_v_func.h"), R"(TARVELOQT_EXPORT \w+ (\w+)\()"),
                   17);
}

TEST(HostGuide, everyFunctionOfTheDiagnosis_isExplained)
{
    expectAllNamed(captured(textOf("include/card_diagnosis.h"), R"((mvDiagnos\w+)\()"), 6);
}

TEST(HostGuide, everyRowAndKey_isExplained)
{
    const QString header = textOf("include/renew_context.h");
    const int values = header.indexOf(QStringLiteral("// Values under `renewalMode`"));
    ASSERT_GT(values, 0);
    expectAllNamed(captured(header.left(values), R"(inline const QString (\w+) =)"), 25);
    QSet<QString> texts = captured(header.left(values), "QStringLiteral\\(\"([^\"]+)\"\\)");
    for (const char* prefix : {"AUT: ", "PRA: ", "CNS: "}) {
        texts.remove(QString::fromUtf8(prefix));
    }
    expectAllNamed(texts, 22);
}
