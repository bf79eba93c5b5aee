// What happens before the card sees a PIN, by the tries that it has left.

#include "hosts/console/exit_code.h"
#include "installed_program.h"
#include "tests/support/terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using console::ExitCode;
using hosts::InstalledProgram;
using hosts::ProgramEnd;
using support::Terminal;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int code(ExitCode exitCode)
{
    return static_cast<int>(exitCode);
}

class PinTries : public testing::Test {
protected:
    ProgramEnd list(const std::string& flags, std::vector<std::string> more = {})
    {
        m_program.set("PKCS11_PROXY_SET_FLAGS", flags);
        more.insert(more.begin(), {"list", "--pin-file", m_program.file("card/pin")});
        return m_program.run(more);
    }

    InstalledProgram m_program;
};

// `list` on a terminal, with one try left.
class LastTryAtTheTerminal : public testing::Test {
protected:
    LastTryAtTheTerminal() { m_program.set("PKCS11_PROXY_SET_FLAGS", hosts::pinFinalTry); }

    std::unique_ptr<Terminal> start(const std::string& language)
    {
        return std::make_unique<Terminal>([this, language] {
            hosts::becomeProgram({m_program.program(), "list", "--lang", language},
                                 m_program.environment());
            return 127;
        });
    }

    static std::string exited(ExitCode exitCode)
    {
        return "exited " + std::to_string(code(exitCode));
    }

    InstalledProgram m_program;
};

}  // namespace

TEST_F(PinTries, notLow_nothingIsSaid)
{
    const ProgramEnd end = list("0");
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_EQ(end.errors, "");
    EXPECT_GT(m_program.calls("C_Login"), 0U);
}

TEST_F(PinTries, low_warnsAndGoesOn)
{
    for (const auto& [language, sentence] :
         {std::pair("it", "restano pochi tentativi"), std::pair("en", "few tries are left")}) {
        SCOPED_TRACE(language);
        const ProgramEnd end = list(hosts::pinCountLow, {"--lang", language});
        EXPECT_EQ(end.exitCode, 0) << end.errors;
        EXPECT_THAT(end.errors, HasSubstr(sentence));
    }
}

TEST_F(PinTries, locked_theCardSeesNoPin)
{
    for (const char* option : {"--lang=it", "--lang=en", "--last-try", "--json"}) {
        SCOPED_TRACE(option);
        EXPECT_EQ(list(hosts::pinLocked, {option}).exitCode, code(ExitCode::pinBlocked));
    }
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
}

TEST_F(PinTries, severalFlags_theWorstCounts)
{
    EXPECT_EQ(list("70000").exitCode, code(ExitCode::pinBlocked));
    EXPECT_EQ(list("30000").exitCode, code(ExitCode::lastTry));
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
}

TEST_F(PinTries, lastWithoutTerminal_theCardSeesNoPin)
{
    const ProgramEnd end = list(hosts::pinFinalTry);
    EXPECT_EQ(end.exitCode, code(ExitCode::lastTry));
    EXPECT_THAT(end.errors, HasSubstr("--last-try"));
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
}

TEST_F(PinTries, lastWithLastTry_warnsAndGoesOn)
{
    const ProgramEnd end = list(hosts::pinFinalTry, {"--last-try"});
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_THAT(end.errors, HasSubstr("One try is left"));
    EXPECT_GT(m_program.calls("C_Login"), 0U);
}

TEST_F(PinTries, lastWithJson_standardOutputStaysOneDocument)
{
    m_program.set("PKCS11_PROXY_SET_FLAGS", hosts::pinFinalTry);
    const QJsonObject answer = m_program.answer(
        {"list", "--last-try", "--pin-file", m_program.file("card/pin")}, code(ExitCode::done));
    EXPECT_EQ(answer["exit"]["name"], "done");
}

TEST_F(PinTries, otherCardLibraries_nothingIsSaid)
{
    m_program.useOtherCardLibraries();
    const ProgramEnd end = list("0");
    EXPECT_THAT(end.errors, Not(HasSubstr("tr")));
    EXPECT_NE(end.exitCode, code(ExitCode::lastTry));
    EXPECT_NE(end.exitCode, code(ExitCode::pinBlocked));
}

TEST_F(LastTryAtTheTerminal, answeredNo_theCardSeesNoPin)
{
    const auto terminal = start("it");
    terminal->waitForText("Resta un solo tentativo");
    terminal->waitForText("[s/N]");
    terminal->type("n\n");
    EXPECT_EQ(terminal->nextChange(), exited(ExitCode::lastTry));
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
}

TEST_F(LastTryAtTheTerminal, emptyAnswer_isNo)
{
    const auto terminal = start("en");
    terminal->waitForText("Use the last try? [y/N]");
    terminal->type("\n");
    EXPECT_EQ(terminal->nextChange(), exited(ExitCode::lastTry));
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
}

TEST_F(LastTryAtTheTerminal, answeredYes_thePinIsAskedForAndUsed)
{
    const auto terminal = start("en");
    terminal->waitForText("Use the last try? [y/N]");
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
    terminal->type("y\n");
    terminal->waitForText("Inserire un PIN (8 cifre)");
    terminal->waitForEcho(false);
    terminal->type(m_program.card().pin() + "\n");
    EXPECT_EQ(terminal->nextChange(), exited(ExitCode::done));
    EXPECT_GT(m_program.calls("C_Login"), 0U);
}
