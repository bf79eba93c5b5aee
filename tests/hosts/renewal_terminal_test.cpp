// Whole sessions of tarvelo-renew on a pseudo-terminal, as a person has them.

#include "hosts/console/exit_code.h"
#include "software_card.h"
#include "tests/support/terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

using console::ExitCode;
using hosts::SoftwareCard;
using support::Terminal;
using testing::HasSubstr;
using testing::Not;

namespace {

class RenewalAtTheTerminal : public testing::Test {
protected:
    std::string exited(ExitCode code) const
    {
        return "exited " + std::to_string(static_cast<int>(code));
    }

    SoftwareCard m_card;
    Terminal m_terminal{[this] {
        hosts::becomeProgram({hosts::renewProgram(), "--ca", "command:" + m_card.authority()},
                             m_card.environment());
        return 127;
    }};
};

}  // namespace

TEST_F(RenewalAtTheTerminal, guided_renewsWithoutEchoingThePin)
{
    m_terminal.waitForText("Inserire un PIN (8 cifre)");
    m_terminal.waitForEcho(false);
    m_terminal.type(m_card.pin() + "\n");
    m_terminal.waitForText("PIN:     accepted");
    m_terminal.waitForText("to be renewed; afterwards valid until");
    m_terminal.waitForText("Go on? [y/N]");
    EXPECT_TRUE(m_terminal.echoes());
    m_terminal.type("y\n");
    m_terminal.waitForText("Renewed: authentication certificate");
    EXPECT_EQ(m_terminal.nextChange(), exited(ExitCode::done));
    EXPECT_THAT(m_terminal.screen(), Not(HasSubstr(m_card.pin())));
}

TEST_F(RenewalAtTheTerminal, pinOfAnotherLength_isAskedAgain)
{
    m_terminal.waitForText("Inserire un PIN (8 cifre)");
    m_terminal.waitForEcho(false);
    m_terminal.type("1234\n");
    m_terminal.waitForText("exactly eight characters");
    m_terminal.waitForText("Inserire un PIN (8 cifre)");
    m_terminal.waitForEcho(false);
    m_terminal.type(m_card.pin() + "\n");
    m_terminal.waitForText("Go on? [y/N]");
    m_terminal.type("n\n");
    EXPECT_EQ(m_terminal.nextChange(), exited(ExitCode::declined));
    EXPECT_THAT(m_card.log(), Not(HasSubstr("Errore nella Login")));
}

TEST_F(RenewalAtTheTerminal, pinOfAnotherLengthThreeTimes_endsTheRun)
{
    for (int question = 0; question < 3; ++question) {
        m_terminal.waitForText("Inserire un PIN (8 cifre)");
        m_terminal.waitForEcho(false);
        m_terminal.type("\n");
    }
    EXPECT_EQ(m_terminal.nextChange(), exited(ExitCode::pinUnusable));
    EXPECT_TRUE(m_terminal.echoes());
}

TEST_F(RenewalAtTheTerminal, interruptedAtThePin_theEchoIsBack)
{
    m_terminal.waitForText("Inserire un PIN (8 cifre)");
    m_terminal.waitForEcho(false);
    m_terminal.signal(SIGINT);
    EXPECT_EQ(m_terminal.nextChange(), "killed " + std::to_string(SIGINT));
    EXPECT_TRUE(m_terminal.echoes());
}
