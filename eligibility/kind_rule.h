#ifndef TARVELOQT_ELIGIBILITY_KIND_RULE_H
#define TARVELOQT_ELIGIBILITY_KIND_RULE_H

#include "inventory/certificate_descriptor.h"
#include "renew_context.h"

#include <QDate>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace eligibility {

enum class CertificateKind { aut, pra, cns };

// What a check needs to know of the world around it, asked for at the moment it matters.
struct Surroundings {
    std::function<QDate()> today;
    // The marker file "skipCheck.rnw" is there: dates are not looked at.
    std::function<bool()> expiryCheckSkipped;
    // The marker file "CkSpace_" of this card is there: its pending signature key belongs to the
    // certificate whose descriptor names none.
    std::function<bool()> spaceMarkerPresent;
    // The user wants the limitation of use removed.
    std::function<bool()> limitationRemoved;
};

// One certificate on its way through a check.
struct Candidate {
    const inventory::CertificateDescriptor& descriptor;
    const Surroundings& surroundings;
    QString pendingLabel;  // of the kind, empty when the card has none
    // What a renewable record gets; they start as the descriptor's values.
    QString subject;
    QString policy;
};

// How a renewable certificate is shown.
struct Classification {
    QString renewalLabel;
    QString certificateLabel;  // null: none
    std::vector<QString> logLines;
};

// The recovery record of a kind: the card holds a key of it, but no certificate. A null value is
// not written.
struct RecoveryRule {
    QString renewalLabel;
    QString renewalMode;
    QString certificateLabel;
    QString toPay;
    bool namesPendingKey;
    QString logLine;
};

// Everything in which the kinds differ.
struct KindRule {
    CertificateKind kind;
    QString name;  // as in log lines
    QString rowPrefix;
    int storeCapacity;  // certificates
    int pendingKeyField;
    int fiscalCodeField;
    // The subject's serialNumber attribute: characters taken from its type on, and how many of
    // those, the type included, go before the fiscal code.
    int fiscalCodeSpan;
    int fiscalCodePrefix;
    // Set on every record, renewable or not; null: none.
    QString labelOfEveryRecord;
    // The descriptor field that is logged as explicit text; -1: none.
    int explicitTextField;
    QStringList authorities;  // words of the issuer, in lower case
    QString authorityList;
    QString rejectedLogLine;
    QString notYetDueLogLine;
    QString expiredMode;  // also the log line
    RecoveryRule recovery;

    // The pending key as the record names it before any decision.
    QString (*recordedPendingKey)(const Candidate& candidate);
    // The pending key that a renewable record names.
    QString (*usablePendingKey)(const Candidate& candidate);
    // Additions to every candidate before its issuer is looked at.
    void (*prepare)(Candidate& candidate);
    // Labels and log lines of a renewable certificate; may change subject and policy.
    Classification (*classify)(Candidate& candidate);
};

// The kind's row.
const KindRule& ruleOf(CertificateKind kind);

// All rows, one for each kind.
const std::vector<KindRule>& kindRules();

}  // namespace eligibility

#endif
