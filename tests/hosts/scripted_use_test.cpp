// What a script may rely on: nothing is asked of nobody, nothing is written by --dry-run, and the
// PIN comes from where the script says.

#include "card_commands_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

using console::ExitCode;
using hosts::CardCommands;
using hosts::ProgramEnd;
using hosts::text;
using hosts::Words;
using testing::HasSubstr;
using testing::Not;

namespace {

class ScriptedUse : public CardCommands {
protected:
    // Everything of the home folder but the log.
    void expectNothingKept() const { EXPECT_TRUE(records().empty()); }

    std::string wrongPin() const { return m_card.pin() == "00000000" ? "11111111" : "00000000"; }
};

}  // namespace

TEST_F(ScriptedUse, dryRun_changesNeitherCardNorRecords)
{
    const std::string file = m_card.file("made.pem");
    const auto untouched = cardObjects();
    for (const Words& arguments :
         {Words{"request", "--save-request", file},
          Words{"renew", "--ca", "command:" + m_card.authority(), "--save-certificate", file},
          Words{"renew", "--all", "--ca", "command:false"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Words dry = arguments;
        dry.emplace_back("--dry-run");
        const QJsonObject document = answer(withPin(dry), ExitCode::done);
        EXPECT_EQ(document["plan"].toArray().size(), 1);
        EXPECT_FALSE(document.contains("renewals"));
        EXPECT_FALSE(document.contains("requests"));
        EXPECT_THAT(run(withPin(dry)).output, HasSubstr("nothing was written"));
    }
    EXPECT_EQ(cardObjects(), untouched);
    expectNothingKept();
    EXPECT_EQ(m_card.contentOf("made.pem"), "");
}

TEST_F(ScriptedUse, dryRunOfTheRest_changesNeitherCardNorRecords)
{
    answer(unattended({"request"}), ExitCode::done);
    answer({"submit", "--ca", "command:" + m_card.authority()}, ExitCode::done);
    const auto objects = cardObjects();
    const auto kept = records();
    for (const char* command : {"install", "resume", "renew"}) {
        SCOPED_TRACE(command);
        const QJsonObject document = answer(withPin({command, "--dry-run"}), ExitCode::done);
        EXPECT_EQ(text(document["plan"][0]["steps"][0]), "use-kept-certificate");
    }
    EXPECT_EQ(cardObjects(), objects);
    EXPECT_EQ(records(), kept);
}

TEST_F(ScriptedUse, confirmationThatNobodyCanGive_changesNothing)
{
    const auto before = cardObjects();
    answer(withPin({"request"}), ExitCode::confirmationNeeded);
    answer(withPin({"renew", "--ca", "command:" + m_card.authority()}),
           ExitCode::confirmationNeeded);
    const ProgramEnd guided = run(withPin({"--ca", "command:" + m_card.authority()}));
    expectEnd(guided, ExitCode::confirmationNeeded, "--yes");
    EXPECT_EQ(cardObjects(), before);
    expectNothingKept();
}

TEST_F(ScriptedUse, ask_takesTheAnswersFromStandardInput)
{
    const auto before = cardObjects();
    const ProgramEnd declined = m_card.renew(withPin({"renew", "--ca", "command:false"}), "n\n");
    expectEnd(declined, ExitCode::declined);
    EXPECT_EQ(cardObjects(), before);
    for (const char* answerGiven : {"y\n", "s\xc3\xac\n"}) {
        SCOPED_TRACE(answerGiven);
        const ProgramEnd request = m_card.renew(withPin({"request"}), answerGiven);
        expectEnd(request, ExitCode::done);
    }
    const ProgramEnd pinAndAnswer =
        m_card.renew({"renew", "--ca", "command:" + m_card.authority()}, m_card.pin() + "\ny\n");
    expectEnd(pinAndAnswer, ExitCode::done);
    expectAllRenewed();
}

TEST_F(ScriptedUse, askWithJson_putsTheQuestionsOnStandardError)
{
    const ProgramEnd end = m_card.renew({"request", "--json"}, m_card.pin() + "\ny\n");
    expectEnd(end, ExitCode::done, "Go on? [y/N]");
    EXPECT_EQ(end.output.front(), '{');
    EXPECT_THAT(end.output, Not(HasSubstr("Go on?")));
}

TEST_F(ScriptedUse, pin_comesFromEachSource)
{
    struct Row {
        const char* source;
        Words arguments;
        hosts::Environment environment;
    };
    m_card.write("windows", m_card.pin() + "\r\nsecond line\n");
    m_card.write("bare", m_card.pin());
    const std::string link = m_card.file("link");
    ASSERT_EQ(::symlink(m_card.file("card/pin").c_str(), link.c_str()), 0);
    const Row sources[] = {
        {"file", {"--pin-file", m_card.file("card/pin")}, {}},
        {"file with the line ends of another system", {"--pin-file", m_card.file("windows")}, {}},
        {"file without line end", {"--pin-file", m_card.file("bare")}, {}},
        {"link to a file", {"--pin-file", link}, {}},
        {"variable", {"--pin-env", "CARD_PIN"}, {{"CARD_PIN", m_card.pin()}}},
    };
    for (const Row& row : sources) {
        SCOPED_TRACE(row.source);
        Words arguments = {"list"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        answer(arguments, ExitCode::done, row.environment);
    }
    const ProgramEnd byDescriptor = m_card.shell(
        hosts::renewProgram() + " list --json --pin-fd 7 7< " + m_card.file("card/pin"));
    expectEnd(byDescriptor, ExitCode::done);
}

TEST_F(ScriptedUse, pinSourceThatCannotBeUsed_neverReachesTheCard)
{
    m_card.write("short", "1234567\n");
    m_card.write("long", "123456789\n");
    m_card.write("empty", "");
    struct Row {
        Words arguments;
        ExitCode expected;
    };
    const Row sources[] = {
        {{"--pin-file", m_card.file("short")}, ExitCode::pinUnusable},
        {{"--pin-file", m_card.file("long")}, ExitCode::pinUnusable},
        {{"--pin-file", m_card.file("empty")}, ExitCode::pinUnusable},
        {{"--pin-file", m_card.file("missing")}, ExitCode::fileFailed},
        {{"--pin-file", m_card.folder()}, ExitCode::fileFailed},
        {{"--pin-fd", "77"}, ExitCode::fileFailed},
        {{"--pin-env", "NO_SUCH_VARIABLE"}, ExitCode::pinUnusable},
        {{}, ExitCode::pinUnusable},
    };
    for (const Row& row : sources) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        Words arguments = {"list"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        answer(arguments, row.expected);
    }
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Errore nella Login")));
    answer(withPin({"list"}), ExitCode::done);
}

TEST_F(ScriptedUse, wrongPin_isTriedOnce)
{
    m_card.write("wrong", wrongPin() + "\n");
    const ProgramEnd end = run({"list", "--pin-file", m_card.file("wrong")});
    expectEnd(end, ExitCode::pinRefused);
    EXPECT_THAT(end.output + end.errors + m_card.log(), Not(HasSubstr(wrongPin())));
}
