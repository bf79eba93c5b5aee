// A line of the certificate table: what a record of the inventory means to a person.

#ifndef TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_ENTRY_H
#define TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_ENTRY_H

#include <QDate>
#include <QString>

#include <card_v_func.h>

#include <functional>
#include <vector>

namespace console {

enum class Kind { authentication, signature, cns };

enum class Verdict {
    toRenew,
    notYetDue,
    expired,
    otherAuthority,
    // A key without any certificate of its kind: a renewal that was interrupted.
    recovery,
    // A reason that this program has no words for.
    otherReason,
};

struct CertificateEntry {
    // As the table shows it, from 1.
    int number = 0;
    // Row key in the context, for example "AUT: 1".
    QString row;
    Kind kind = Kind::authentication;
    QString kindName;
    QString holder;
    QString issuer;
    // Distinguished name as the card gives it.
    QString issuerDN;
    QString serialNumber;
    QString renewalId;
    QString pendingKey;
    QString policy;
    // Invalid for a recovery entry and when the record's date cannot be read.
    QDate validUntil;
    Verdict verdict = Verdict::otherReason;
    // The verdict and its reason as a sentence.
    QString verdictText;
    // "yyyyMMdd000000"; only for what is to be renewed, empty when the library cannot tell.
    QString expectedEnd;

    bool canBeChosen() const { return verdict == Verdict::toRenew || verdict == Verdict::recovery; }
};

// Where an entry gets what its record does not hold.
struct EntrySources {
    // Today's date.
    QDate today;
    // The certificate descriptor of a kind and number as the card gave it, empty when there is
    // none: a record marked not renewable no longer names its issuer.
    std::function<QString(Kind, int)> descriptor;
    // The end of validity after a renewal, as addRemainingDaysToNotAfter gives it.
    std::function<QString(RenewRecord&)> expectedEnd;
};

// The entries of all certificate and recovery rows: authentication, signature, CNS, and by number
// within a kind.
std::vector<CertificateEntry> certificateEntries(const RenewContext& context,
                                                 const EntrySources& sources);

// The kind in the language that is set.
QString kindName(Kind kind);

// The date in the first eight characters (yyyyMMdd); invalid when there is none.
QDate dateOf(const QString& text);

}  // namespace console

#endif
