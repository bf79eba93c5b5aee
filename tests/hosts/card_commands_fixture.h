// The card commands of tarvelo-renew on a software card, with every JSON answer held against its
// schema.

#ifndef TARVELOQT_TESTS_HOSTS_CARD_COMMANDS_FIXTURE_H
#define TARVELOQT_TESTS_HOSTS_CARD_COMMANDS_FIXTURE_H

#include "hosts/console/exit_code.h"
#include "software_card.h"

#include <QJsonArray>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace hosts {

using Words = std::vector<std::string>;

class CardCommands : public testing::Test {
protected:
    static constexpr int daysLeft = 30;

    // kinds: as tarvelo-softcard takes them.
    explicit CardCommands(const std::string& kinds = "aut");

    // The arguments with the PIN from its file.
    Words withPin(Words arguments) const;
    // The same, and no question asked.
    Words unattended(Words arguments) const;
    // The same, and the demonstration authority asked.
    Words byAuthority(Words arguments) const;

    // Runs it with --json and fails the test unless standard output holds one document that is
    // valid, that tells the exit code and that, like standard error, does not hold the PIN.
    QJsonObject answer(Words arguments, console::ExitCode expected) const;
    QJsonObject answer(Words arguments, console::ExitCode expected,
                       const Environment& environment) const;

    // Runs it with these variables added.
    ProgramEnd run(const Words& arguments, const Environment& environment) const;
    ProgramEnd run(const Words& arguments) const;

    // Fails the test unless it ended so; told: a part of standard error, line ends as blanks.
    static void expectEnd(const ProgramEnd& end, console::ExitCode expected,
                          const std::string& told = {});

    // Files of the kept renewals, by name.
    std::map<std::string, std::string> records() const;
    // Digests of the objects on the card, by the file that holds each. The token's own file is left
    // out: it counts the logins.
    std::map<std::string, std::string> cardObjects() const;

    // Certificates as `list` gives them.
    QJsonArray listed() const;
    // Fails the test unless all certificates are renewed, none is doubled, no key waits and no
    // record is left.
    void expectAllRenewed(int certificates = 1) const;
    // Fails the test unless the card has as many objects as this number of certified key pairs, as
    // a program sees it that knows nothing of renewals.
    void expectPairsOnCard(int pairs) const;

    // The demonstration authority's answer to a request, in a file beside the card; its path.
    std::string issued(const std::string& request, const std::string& name = "issued.pem") const;

    // Another user's home, or another machine's.
    Environment otherHome() const;
    // A machine without any card.
    Environment withoutCard() const;

    static std::string renewedEnd();

    SoftwareCard m_card;

private:
    std::map<std::string, std::string> filesBelow(const std::string& folder) const;
};

std::string text(const QJsonValue& value);
// Text with every run of blanks and line ends made one blank: sentences are broken at the margin.
std::string unbroken(const std::string& text);

}  // namespace hosts

#endif
