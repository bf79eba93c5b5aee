// Guided sessions on a pseudo-terminal, every screen compared with the file that shows it.
//
// What a session really showed is left in the build folder (tests/screens/): look at it, and copy
// it over the file in tests/hosts/screens/ when it is what a person should see.

#include "hosts/console/exit_code.h"
#include "hosts/console/text_layout.h"
#include "software_card.h"
#include "tests/support/terminal.h"

#include <QDateTime>
#include <QRegularExpression>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <iterator>

using console::ExitCode;
using hosts::SoftwareCard;
using support::Terminal;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int daysLeft = 30;

std::string exited(ExitCode code)
{
    return "exited " + std::to_string(static_cast<int>(code));
}

// Words that the sessions wait for.
struct Prompts {
    const char* pin;
    const char* choice;
    const char* confirmation;
    const char* yes;
    const char* asked;
    const char* finish;
};

const Prompts& promptsIn(const std::string& language)
{
    // The question for the PIN is the renewal library's.
    static const Prompts italian = {
        "Inserire un PIN (8 cifre)", "per uscire: ", "Procedere? [s/N] ", "s\n", "all'autorità",
        "Completarlo adesso? [s/N] "};
    static const Prompts english = {
        "Inserire un PIN (8 cifre)", "to leave: ",           "Go on? [y/N] ", "y\n",
        "authority is asked",        "Finish it now? [y/N] "};
    return language == "it" ? italian : english;
}

// What differs from run to run, replaced by something as wide.
QString withPlaceholders(const std::string& shown, const SoftwareCard& card)
{
    const QDate today = QDateTime::currentDateTimeUtc().date();
    const QDate oldEnd = today.addDays(daysLeft);
    const QDate newEnd = oldEnd.addYears(3).addDays(daysLeft);
    QString text = QString::fromStdString(shown);
    // Only where the card works for more than a second; wiped from the screen afterwards.
    text.remove(QRegularExpression(QStringLiteral("\r[^\r\n]* s \\.\\.\\.(?=\r)")));
    text.remove(QStringLiteral("\r\x1b[K"));
    text.remove(QLatin1Char('\r'));
    text.replace(QRegularExpression(QStringLiteral("TarveloQT \\d+\\.\\d+\\.\\d+")),
                 QStringLiteral("TarveloQT <version>"));
    text.replace(oldEnd.toString(Qt::ISODate), QStringLiteral("<old end->"));
    text.replace(newEnd.toString(Qt::ISODate), QStringLiteral("<new end->"));
    text.replace(newEnd.addDays(-91).toString(Qt::ISODate), QStringLiteral("<due from>"));
    text.replace(QString::number(today.daysTo(newEnd)), QStringLiteral("DDDD"));
    text.replace(QRegularExpression(QStringLiteral("\\b[0-9a-f]{16}\\b")),
                 QStringLiteral("<serial-number->"));
    text.replace(QString::fromStdString(card.folder()), QStringLiteral("<folder>"));
    return text;
}

class GuidedScreens : public testing::TestWithParam<std::string> {
protected:
    GuidedScreens() { std::setlocale(LC_ALL, "C.UTF-8"); }

    const Prompts& prompts() const { return promptsIn(GetParam()); }

    std::unique_ptr<Terminal> start(const std::string& authority)
    {
        return std::make_unique<Terminal>([this, authority] {
            ::dup2(STDOUT_FILENO, STDERR_FILENO);
            hosts::Environment environment = m_card.environment();
            environment["TERM"] = m_terminalType;
            hosts::becomeProgram(
                {hosts::renewProgram(), "--lang", GetParam(), "--ca", "command:" + authority},
                environment);
            return 127;
        });
    }

    void givePin(Terminal& terminal) const
    {
        terminal.waitForText(prompts().pin);
        terminal.waitForEcho(false);
        terminal.type(m_card.pin() + "\n");
    }

    // Keeps what was shown, without the PIN.
    void note(Terminal& terminal)
    {
        const std::string screen = terminal.screen();
        EXPECT_THAT(screen, Not(HasSubstr(m_card.pin())));
        m_shown += withPlaceholders(screen, m_card) + "--------\n";
    }

    void expectScreens(const std::string& name) const
    {
        namespace fs = std::filesystem;
        const std::string file = name + "_" + GetParam() + ".txt";
        fs::create_directories(SHOWN_SCREENS);
        std::ofstream(std::string(SHOWN_SCREENS) + "/" + file) << m_shown.toStdString();
        std::ifstream expected(std::string(EXPECTED_SCREENS) + "/" + file);
        EXPECT_TRUE(expected.good()) << file;
        EXPECT_EQ(m_shown.toStdString(), std::string(std::istreambuf_iterator<char>(expected), {}));
        for (const QString& line : m_shown.split(QLatin1Char('\n'))) {
            EXPECT_LT(console::displayWidth(line), console::screenWidth) << line.toStdString();
        }
    }

    SoftwareCard m_card{daysLeft, "aut,pra,cns"};
    QString m_shown;
    std::string m_terminalType = "dumb";
};

// Where a person presses Ctrl-C.
struct Row {
    const char* moment;
    // What the session does before.
    void (*reach)(Terminal& terminal, const Prompts& prompts, const std::string& pin);
    bool isBegun;
};

void reachPin(Terminal& terminal, const Prompts& prompts, const std::string& /*pin*/)
{
    terminal.waitForText(prompts.pin);
    terminal.waitForEcho(false);
}

void reachChoice(Terminal& terminal, const Prompts& prompts, const std::string& pin)
{
    reachPin(terminal, prompts, pin);
    terminal.type(pin + "\n");
    terminal.waitForText(prompts.choice);
}

void reachConfirmation(Terminal& terminal, const Prompts& prompts, const std::string& pin)
{
    reachChoice(terminal, prompts, pin);
    terminal.type("1\n");
    terminal.waitForText(prompts.confirmation);
}

void reachAuthority(Terminal& terminal, const Prompts& prompts, const std::string& pin)
{
    reachConfirmation(terminal, prompts, pin);
    terminal.type(prompts.yes);
    terminal.waitForText(prompts.asked);
}

constexpr Row moments[] = {
    {"at the PIN", reachPin, false},
    {"at the choice", reachChoice, false},
    {"at the confirmation", reachConfirmation, false},
    {"while the authority works", reachAuthority, true},
};

}  // namespace

TEST_P(GuidedScreens, oneThenTheOthers_areShownAsRecorded)
{
    const auto terminal = start(m_card.authority());
    givePin(*terminal);
    for (const char* wanted : {"1\n", "all\n"}) {
        terminal->waitForText(prompts().choice);
        terminal->type(wanted);
        terminal->waitForText(prompts().confirmation);
        EXPECT_TRUE(terminal->echoes());
        terminal->type(prompts().yes);
    }
    EXPECT_EQ(terminal->nextChange(), exited(ExitCode::done));
    note(*terminal);
    expectScreens("guided");
}

TEST_P(GuidedScreens, terminalThatShowsColours_theWordsStayTheSame)
{
    m_terminalType = "xterm";
    const auto coloured = start(m_card.authority());
    givePin(*coloured);
    coloured->waitForText(prompts().choice);
    coloured->type("\n");
    EXPECT_EQ(coloured->nextChange(), exited(ExitCode::declined));
    QString shown = QString::fromStdString(coloured->screen());
    EXPECT_TRUE(shown.contains(QStringLiteral("\x1b[1m")));
    shown.remove(QRegularExpression(QStringLiteral("\x1b\\[[0-9;]*m")));

    m_terminalType = "dumb";
    const auto plain = start(m_card.authority());
    givePin(*plain);
    plain->waitForText(prompts().choice);
    plain->type("\n");
    EXPECT_EQ(plain->nextChange(), exited(ExitCode::declined));
    EXPECT_EQ(shown.toStdString(), plain->screen());
}

TEST_P(GuidedScreens, ctrlC_leavesTheEchoOnAndIsRememberedAtTheNextStart)
{
    const std::string slow = m_card.script("slow", "sleep 30");
    for (const Row& row : moments) {
        SCOPED_TRACE(row.moment);
        const auto terminal = start(slow);
        row.reach(*terminal, prompts(), m_card.pin());
        terminal->type("\x03");
        EXPECT_EQ(terminal->nextChange(), "killed 2");
        EXPECT_TRUE(terminal->echoes());
        EXPECT_EQ(std::filesystem::exists(m_card.file("home/.brisko/renewals")), row.isBegun);
    }
    const auto terminal = start(m_card.authority());
    givePin(*terminal);
    terminal->waitForText(prompts().finish);
    terminal->type(prompts().yes);
    terminal->waitForText(prompts().choice);
    terminal->type("\n");
    EXPECT_EQ(terminal->nextChange(), exited(ExitCode::done));
    note(*terminal);
    expectScreens("begun");
    // A file that the end of the process left unfinished may stay for a while; it is no record.
    for (const auto& kept :
         std::filesystem::directory_iterator(m_card.file("home/.brisko/renewals"))) {
        EXPECT_NE(kept.path().extension(), ".json") << kept.path();
    }
}

TEST_P(GuidedScreens, endsWithoutRenewal_areShownAsRecorded)
{
    const auto declined = start(m_card.authority());
    givePin(*declined);
    declined->waitForText(prompts().choice);
    declined->type("7\n");
    declined->waitForText(prompts().choice);
    declined->type("\n");
    EXPECT_EQ(declined->nextChange(), exited(ExitCode::declined));
    note(*declined);

    const auto failed = start("false");
    givePin(*failed);
    failed->waitForText(prompts().choice);
    failed->type("2\n");
    failed->waitForText(prompts().confirmation);
    failed->type(prompts().yes);
    EXPECT_EQ(failed->nextChange(), exited(ExitCode::authorityFailed));
    note(*failed);
    expectScreens("unfinished");
}

INSTANTIATE_TEST_SUITE_P(Languages, GuidedScreens, testing::Values("it", "en"),
                         [](const auto& test) { return test.param; });
