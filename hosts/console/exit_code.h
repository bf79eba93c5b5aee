// What tarvelo-renew tells the program that started it.
//
// One table holds every exit code with its name, its meaning and what to do next, in both
// languages; the screens, the JSON output, docs/exit-codes.md and the tests read the same table.
// Codes and names are part of the interface: a new cause gets a new number, a number is never given
// another meaning.

#ifndef TARVELOQT_HOSTS_CONSOLE_EXIT_CODE_H
#define TARVELOQT_HOSTS_CONSOLE_EXIT_CODE_H

#include "hosts/console/language.h"

#include <QString>

#include <exception>
#include <optional>
#include <vector>

namespace console {

enum class ExitCode : int {
    done = 0,
    internalError = 1,
    usage = 2,
    noReader = 3,
    pinUnusable = 4,
    cardUnreachable = 5,
    pinRefused = 6,
    cardRefused = 7,
    inventoryFailed = 8,
    nothingToRenew = 9,
    choiceNeeded = 10,
    declined = 11,
    requestFailed = 12,
    authorityFailed = 13,
    certificateRefused = 14,
    installationFailed = 15,
    notSeenOnCard = 16,
    comeBackLater = 17,
    fileFailed = 18,
    confirmationNeeded = 19,
    lastTry = 20,
    pinBlocked = 21,
    nothingPending = 22,
    someFailed = 23,
    problemsFound = 24,
    unknownAtr = 25,
    authorityUnreachable = 26,
    authorityRefused = 27,
};

struct ExitCodeEntry {
    ExitCode code;
    // As JSON gives it.
    const char* name;
    Text meaning;
    // Nothing when there is nothing to do.
    std::optional<Text> nextStep;
};

// All entries, by ascending code.
const std::vector<ExitCodeEntry>& exitCodes();

// The entry of a code; every enumerator has one.
const ExitCodeEntry& entryOf(ExitCode code);

// Ends the run: thrown by the steps, caught once around them, after the session is freed.
class Stop : public std::exception {
public:
    // detail: a whole sentence, or empty when the table's meaning says it all. nextStep: replaces
    // the table's advice where the step knows better.
    explicit Stop(ExitCode code, QString detail = {}, QString nextStep = {});

    ExitCode code() const { return m_code; }
    const QString& detail() const { return m_detail; }
    QString nextStep() const;
    const char* what() const noexcept override;

private:
    ExitCode m_code;
    QString m_detail;
    QString m_nextStep;
};

}  // namespace console

#endif
