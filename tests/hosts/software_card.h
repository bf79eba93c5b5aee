// A software card with its demonstration authority in a folder of its own, and the console host
// running on it.

#ifndef TARVELOQT_TESTS_HOSTS_SOFTWARE_CARD_H
#define TARVELOQT_TESTS_HOSTS_SOFTWARE_CARD_H

#include "program_run.h"

#include <QTemporaryDir>

#include <string>
#include <vector>

namespace hosts {

class SoftwareCard {
public:
    // Makes the card: one certificate of each kind ("aut,pra,role,cns,cns-like"), with this many
    // days left.
    explicit SoftwareCard(int daysLeft = 30, const std::string& kinds = "aut");

    std::string folder() const;
    // Full path of a file in the folder.
    std::string file(const std::string& name) const;
    std::string contentOf(const std::string& name) const;
    void write(const std::string& name, const std::string& content) const;
    // An executable shell script in the folder; its path.
    std::string script(const std::string& name, const std::string& lines) const;

    std::string pin() const;
    std::string log() const;
    // Home folder, card and locale of everything that runs on this card.
    Environment environment() const;
    // The demonstration authority, as --ca command: takes it.
    std::string authority() const;
    std::string authorityCertificate() const;

    // Takes the certificate and the key pair off the card that it was made with, by a program that
    // knows nothing of renewals.
    void removeOriginalObjects() const;

    // Runs tarvelo-renew with these arguments and this standard input, from which it is let ask
    // when it holds answers.
    ProgramEnd renew(const std::vector<std::string>& arguments,
                     const std::string& input = {}) const;
    // The same with the PIN from its file and no question asked.
    ProgramEnd renewUnattended(std::vector<std::string> arguments) const;
    // Runs a shell command line.
    ProgramEnd shell(const std::string& line, const std::string& input = {}) const;

private:
    QTemporaryDir m_folder;
};

// The path of tarvelo-renew.
std::string renewProgram();

}  // namespace hosts

#endif
