// What doctor can find, from one table: identifier, severity, what is wrong and how to mend it, in
// both languages.
//
// Identifiers are part of the interface: one that was published keeps its meaning.

#ifndef TARVELOQT_HOSTS_CONSOLE_FINDING_H
#define TARVELOQT_HOSTS_CONSOLE_FINDING_H

#include "hosts/console/language.h"

#include <QString>

#include <optional>
#include <vector>

namespace console {

enum class Severity {
    ok,
    // A renewal works all the same.
    warning,
    problem,
};

enum class FindingId {
    serviceRunning,
    serviceMissing,
    serviceStopped,
    serviceRefusing,
    serviceFailing,
    diagnosisUnavailable,
    cardLibraryFault,
    tableUsable,
    tableUnreadable,
    tableMistake,
    moduleMissing,
    moduleBroken,
    moduleNotLoaded,
    moduleFailing,
    softHsmConfigurationMissing,
    softHsmTokensUnreadable,
    noReader,
    readerNotFound,
    readerAmbiguous,
    noCard,
    cardMute,
    cardInUse,
    cardUnknown,
    slotNotFound,
    slotAmbiguous,
    tokenNotInitialised,
    writeProtected,
    notActivated,
    pinToBeChanged,
    pinBlocked,
    pinLastTry,
    pinTriesLow,
    cardUnusable,
    readerReady,
    homeUsable,
    homeUnwritable,
    logUnwritable,
    recordsUnsafe,
    recordUnreadable,
    clockPlausible,
    clockBehind,
    clockAhead,
    authorityReachable,
    authorityMisconfigured,
    authorityUnreachable,
    authorityUntrusted,
};
inline constexpr FindingId lastFindingId = FindingId::authorityUntrusted;

struct FindingRow {
    FindingId id;
    // As JSON gives it.
    const char* name;
    Severity severity;
    // %1 is the finding's subject, %2 its detail. Of readers and cards it begins with "%1: ".
    Text what;
    // Nothing when there is nothing to mend.
    std::optional<Text> cure;
};

const std::vector<FindingRow>& findingRows();

// The row of an identifier; every enumerator has one.
const FindingRow& rowOf(FindingId id);

struct Finding {
    // subject: the reader, file or program that it is about; detail: what the row's text has room
    // for besides.
    explicit Finding(FindingId finding, QString about = {}, QString more = {});

    FindingId id;
    Severity severity;
    QString subject;
    QString detail;

    // In the language that is set, without control characters.
    QString what() const;
    // The same where the subject stands above it already.
    QString whatOfSubject() const;
    // Empty when there is nothing to mend.
    QString cure() const;
};

}  // namespace console

#endif
