// The prompts on a real terminal: what the user sees while typing, and what is left of it
// afterwards.

#include "tests/support/library_fixture.h"
#include "tests/support/terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

using namespace support;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string pinPrompt = "Inserire un PIN (8 cifre)\r\n";

volatile std::sig_atomic_t signalsSeen = 0;

void countSignal(int /*number*/)
{
    signalsSeen = signalsSeen + 1;
}

class PinOnTerminal : public LibraryTest {
protected:
    // Asks for the PIN and tells, as exit code, whether it is the expected one.
    static int askFor(const QString& expected)
    {
        RenewContext own;
        set_pin(&own, QString());
        return own[renew_context::settingsRow][renew_context::pin] == expected ? 0 : 1;
    }
};

TEST_F(PinOnTerminal, typing_isNotEchoed)
{
    Terminal terminal([] { return askFor(QStringLiteral("12345678")); });
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
    // The Enter key may be shown.
    EXPECT_THAT(terminal.screen(), AnyOf(pinPrompt, pinPrompt + "\r\n"));
}

TEST_F(PinOnTerminal, echoOffBefore_staysOffAfterwards)
{
    Terminal terminal([] {
        termios settings{};
        tcgetattr(STDIN_FILENO, &settings);
        settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
        return askFor(QStringLiteral("12345678"));
    });
    terminal.waitForText(pinPrompt);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_FALSE(terminal.echoes());
}

TEST_F(PinOnTerminal, badAnswer_asksAgainWithoutEcho)
{
    Terminal terminal([] { return askFor(QStringLiteral("87654321")); });
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.type("secret\n");
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.type("87654321\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("secret")));
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("8765")));
}

TEST_F(PinOnTerminal, endOfInput_isAnEmptyPin)
{
    Terminal terminal([] { return askFor(QString()); });
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.type("\x04");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(PinOnTerminal, deadlySignal_endsTheProcessWithEchoRestored)
{
    for (const int number : {SIGINT, SIGTERM, SIGQUIT, SIGHUP}) {
        SCOPED_TRACE(strsignal(number));
        Terminal terminal([] { return askFor(QString()); });
        terminal.waitForText(pinPrompt);
        terminal.waitForEcho(false);
        terminal.signal(number);
        EXPECT_EQ(terminal.nextChange(), "killed " + std::to_string(number));
        EXPECT_TRUE(terminal.echoes());
    }
}

TEST_F(PinOnTerminal, interruptKey_endsTheProcessWithEchoRestored)
{
    Terminal terminal([] { return askFor(QString()); });
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.type("\x03");
    EXPECT_EQ(terminal.nextChange(), "killed " + std::to_string(SIGINT));
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(PinOnTerminal, stoppedAndContinued_echoIsOnOnlyWhileStopped)
{
    Terminal terminal([] { return askFor(QStringLiteral("12345678")); });
    terminal.waitForText(pinPrompt);
    for (int i = 0; i < 2; ++i) {
        terminal.waitForEcho(false);
        terminal.signal(SIGTSTP);
        EXPECT_EQ(terminal.nextChange(), "stopped");
        EXPECT_TRUE(terminal.echoes());
        terminal.signal(SIGCONT);
        EXPECT_EQ(terminal.nextChange(), "continued");
    }
    terminal.waitForEcho(false);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("1234")));
}

// No process sees SIGSTOP come, so only the shell can show input again.
TEST_F(PinOnTerminal, stoppedUncatchably_echoIsOffAgainOnceContinued)
{
    Terminal terminal([] { return askFor(QStringLiteral("12345678")); });
    terminal.waitForText(pinPrompt);
    for (int i = 0; i < 2; ++i) {
        terminal.waitForEcho(false);
        terminal.signal(SIGSTOP);
        EXPECT_EQ(terminal.nextChange(), "stopped");
        terminal.moveToBackground();
        terminal.setSettings(terminal.firstSettings());
        terminal.moveToForeground();
        terminal.signal(SIGCONT);
        EXPECT_EQ(terminal.nextChange(), "continued");
    }
    terminal.waitForEcho(false);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(areSame(terminal.settings(), terminal.firstSettings()));
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("1234")));
}

// What a shell sets while it edits its own command line.
termios lineEditing(termios settings)
{
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    return settings;
}

TEST_F(PinOnTerminal, deadlySignalInTheBackground_endsTheProcessAndTheTerminalIsNotTouched)
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        for (const bool stoppedBefore : {false, true}) {
            SCOPED_TRACE(std::string(strsignal(number)) +
                         (stoppedBefore ? ", stopped before" : ""));
            Terminal terminal([] { return askFor(QString()); });
            terminal.waitForText(pinPrompt);
            terminal.waitForEcho(false);
            if (stoppedBefore) {
                terminal.signal(SIGSTOP);
                EXPECT_EQ(terminal.nextChange(), "stopped");
            }
            terminal.moveToBackground();
            const termios shells = lineEditing(terminal.firstSettings());
            terminal.setSettings(shells);
            if (stoppedBefore) {
                terminal.signal(SIGCONT);
                EXPECT_EQ(terminal.nextChange(), "continued");
            }
            terminal.signal(number);
            EXPECT_EQ(terminal.nextChange(), "killed " + std::to_string(number));
            EXPECT_TRUE(areSame(terminal.settings(), shells));
        }
    }
}

TEST_F(PinOnTerminal, startedInTheBackground_echoIsOffOnceInTheForeground)
{
    Terminal terminal([] {
        // Until the shell has taken the terminal.
        while (tcgetpgrp(STDIN_FILENO) == getpgrp())
            usleep(1000);
        return askFor(QStringLiteral("12345678"));
    });
    terminal.moveToBackground();
    terminal.waitForText(pinPrompt);
    EXPECT_TRUE(areSame(terminal.settings(), terminal.firstSettings()));
    terminal.moveToForeground();
    terminal.signal(SIGCONT);
    terminal.waitForEcho(false);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(areSame(terminal.settings(), terminal.firstSettings()));
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("1234")));
}

TEST_F(PinOnTerminal, signalIgnoredByTheHost_staysIgnored)
{
    Terminal terminal([] {
        std::signal(SIGINT, SIG_IGN);
        return askFor(QStringLiteral("12345678"));
    });
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.signal(SIGINT);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(PinOnTerminal, signalHandledByTheHost_reachesItAndHandlersAreRestored)
{
    Terminal terminal([] {
        std::signal(SIGTERM, countSignal);
        RenewContext own;
        set_pin(&own, QString());
        const bool handlerIsBack = std::signal(SIGTERM, SIG_DFL) == countSignal;
        const bool interruptIsBack = std::signal(SIGINT, SIG_DFL) == SIG_DFL;
        return handlerIsBack && interruptIsBack && signalsSeen == 1 ? 0 : 1;
    });
    terminal.waitForText(pinPrompt);
    terminal.waitForEcho(false);
    terminal.signal(SIGTERM);
    terminal.type("\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(PinOnTerminal, outputNotATerminal_echoIsOffAllTheSame)
{
    Terminal terminal([] {
        const StandardOutput elsewhere;
        return askFor(QStringLiteral("12345678"));
    });
    terminal.waitForEcho(false);
    terminal.type("12345678\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_TRUE(terminal.echoes());
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("1234")));
}

TEST_F(PinOnTerminal, pinGiven_terminalIsNotTouched)
{
    Terminal terminal([] {
        RenewContext own;
        set_pin(&own, QStringLiteral("12345678"));
        return 0;
    });
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_EQ(terminal.screen(), "");
    EXPECT_TRUE(terminal.echoes());
}

class ReaderOnTerminal : public LibraryTest {};

TEST_F(ReaderOnTerminal, typing_isEchoed)
{
    setScript({call("mvGetReaderName").writing({"Alfa|Beta|"})});
    Terminal terminal([] {
        RenewContext own;
        set_reader(&own, QString());
        return own[renew_context::settingsRow][renew_context::reader] == QStringLiteral("Beta") ? 0
                                                                                                : 1;
    });
    terminal.waitForText("0) Alfa\r\n");
    EXPECT_TRUE(terminal.echoes());
    terminal.type("1\n");
    EXPECT_EQ(terminal.nextChange(), "exited 0");
    EXPECT_THAT(terminal.screen(), HasSubstr("0) Alfa\r\n1\r\n"));
    setScript({});
}

}  // namespace
