// A whole run speaks one language.

#include "card_commands_fixture.h"

#include <QRegularExpression>

#include <gmock/gmock.h>

using console::ExitCode;
using hosts::CardCommands;
using hosts::ProgramEnd;
using hosts::Words;
using testing::HasSubstr;

namespace {

// Words that no sentence of the other language holds.
const QRegularExpression& englishWords()
{
    static const QRegularExpression words(
        QStringLiteral(R"(\b(the|and|of|is|was|not|with|card|key|it|this|reader|certificates)\b)"));
    return words;
}

const QRegularExpression& italianWords()
{
    static const QRegularExpression words(QStringLiteral(
        R"(\b(il|la|di|della|non|che|carta|chiave|lettore|certificati|certificato|una|sulla)\b)"));
    return words;
}

// Without names and paths, which are nobody's words, and without what the renewal library says,
// which is in Italian for everybody.
QString sentences(const ProgramEnd& end)
{
    static const QRegularExpression names(QStringLiteral(
        R"(Carta Demo \w+|SoftHSM project|\S*/\S*|--[a-z-]+|tarvelo-renew [a-z-]+|it\|en)"
        R"(|it e en|it and en|-----[^-]+-----|Il PIN digitato[^.]+\.|Errore nella Login[^.]+\.)"
        R"(|Attenzione[^\n]+|\d+  [a-z-]+\n|\{[a-z-]+\})"));
    return QString::fromStdString(end.output + end.errors).remove(names);
}

class BothLanguages : public CardCommands {
protected:
    // The runs of a renewal and what can go wrong with one; each begins where the one before ended.
    std::vector<Words> runs() const
    {
        m_card.write("wrong", m_card.pin() == "00000000" ? "11111111" : "00000000");
        m_card.write("short", "123");
        m_card.write("text", "no certificate");
        const Words refused = {"list", "--pin-file", m_card.file("wrong")};
        return {{"log"},
                withPin({"list"}),
                refused,
                {"list", "--pin-file", m_card.file("short")},
                {"list"},
                withPin({"list", "--reader", "Lettore assente"}),
                {"submit"},
                unattended({"resume"}),
                unattended({"install"}),
                withPin({"renew"}),
                unattended({"renew", "--certificate", "9"}),
                withPin({"renew", "--dry-run"}),
                withPin({"--dry-run"}),
                unattended({"request"}),
                unattended({"renew"}),
                {"submit"},
                {"submit", "--ca", "command:false"},
                {"submit", "--ca", "command:no-such-program"},
                {"submit", "--ca", "command:echo nothing"},
                {"submit", "--renewal", "xyz"},
                unattended({"install", "--issued", m_card.file("text")}),
                {"submit", "--ca", "command:" + m_card.authority()},
                {"submit"},
                withPin({"resume", "--dry-run"}),
                unattended({"resume"}),
                unattended({"renew"}),
                unattended({}),
                {"--help"},
                {"renew", "--help"}};
    }

    void expectOneLanguage(const std::string& wanted, const QRegularExpression& other,
                           const hosts::Environment& environment, bool byOption) const
    {
        for (Words arguments : runs()) {
            SCOPED_TRACE(testing::PrintToString(arguments));
            if (byOption) {
                arguments.insert(arguments.end(), {"--lang", wanted});
            }
            // Once there is a log, its lines are the renewal library's.
            if (arguments.front() == "log" && !m_card.log().empty()) {
                continue;
            }
            const QString text = sentences(run(arguments, environment));
            EXPECT_FALSE(text.isEmpty());
            const QRegularExpressionMatch found = other.match(text);
            EXPECT_FALSE(found.hasMatch()) << found.captured().toStdString() << " in:\n"
                                           << text.toStdString();
        }
        expectAllRenewed();
    }
};

}  // namespace

TEST_F(BothLanguages, italianByOption_holdsNoEnglish)
{
    expectOneLanguage("it", englishWords(), {}, true);
}

TEST_F(BothLanguages, italianByLocale_holdsNoEnglish)
{
    expectOneLanguage("it", englishWords(), {{"LC_ALL", "it_IT.UTF-8"}}, false);
}

TEST_F(BothLanguages, english_holdsNoItalian)
{
    expectOneLanguage("en", italianWords(), {{"LC_ALL", "it_IT.UTF-8"}}, true);
}

TEST_F(BothLanguages, otherLocales_speakEnglish)
{
    for (const char* locale : {"C.UTF-8", "de_DE.UTF-8", "C"}) {
        SCOPED_TRACE(locale);
        const ProgramEnd end = run(withPin({"list"}), {{"LC_ALL", locale}});
        EXPECT_THAT(end.output, HasSubstr("Certificates on the card"));
    }
}

TEST_F(BothLanguages, unknownLanguage_isAUsageError)
{
    expectEnd(run({"list", "--lang", "xx"}), ExitCode::usage, "it");
}
