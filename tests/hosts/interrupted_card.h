// A renewal that is ended at a chosen moment, and what it takes to finish it.

#ifndef TARVELOQT_TESTS_HOSTS_INTERRUPTED_CARD_H
#define TARVELOQT_TESTS_HOSTS_INTERRUPTED_CARD_H

#include "installed_program.h"

#include <string>
#include <vector>

namespace hosts {

class InterruptedCard {
public:
    InterruptedCard();

    // Brings back the card as it was made, and a home folder without records.
    void restore() const;

    // The PKCS#11 calls of a whole renewal, in their order. The card is renewed afterwards.
    std::vector<std::string> callsOfRenewal() const;

    // Runs a renewal whose process gets the signal right before its PKCS#11 call of this number,
    // counted from 1. Fails the test unless the process ended there.
    void endBeforeCall(std::size_t number, int signal) const;
    // Runs a renewal whose card is taken out right before that call; how it ended.
    ProgramEnd removeBeforeCall(std::size_t number) const;
    // Runs a renewal whose authority is this shell script instead.
    ProgramEnd renewAt(const std::string& authorityScript) const;

    // What a person finds then: "old", "old, new key waits", "new", "key without certificate".
    // Fails the test when the card holds none of these.
    std::string state() const;
    bool holdsRecord() const;

    // Finishes it with this command ("" for the guided run), and with a renewal where nothing was
    // begun or the rest is only a record to be cleared; which commands it took, with their ends.
    // Fails the test unless the certificate is renewed, the old one is gone with its keys, and no
    // record is left.
    std::string finish(const std::string& command) const;

    const InstalledProgram& program() const { return m_program; }
    // The renewal's command line without the program and its authority.
    std::vector<std::string> unattended(std::vector<std::string> arguments) const;

private:
    ProgramEnd renewWith(const Environment& variables) const;
    int run(const std::vector<std::string>& arguments) const;
    void expectFinished() const;

    InstalledProgram m_program;
};

// The name of the exit code, as JSON gives it.
std::string endName(int exitCode);

}  // namespace hosts

#endif
