// One certificate's renewal in the three steps that may lie days apart, with the record that lets
// each be taken up again: request on the card, the authority's answer, installation on the card.

#ifndef TARVELOQT_HOSTS_CONSOLE_RENEWAL_JOB_H
#define TARVELOQT_HOSTS_CONSOLE_RENEWAL_JOB_H

#include "hosts/console/arguments.h"
#include "hosts/console/issued_certificate.h"
#include "hosts/console/opened_card.h"
#include "hosts/console/record_store.h"

#include <QString>

#include <optional>
#include <vector>

namespace console {

// A renewal that was begun, or is about to be.
struct Unfinished {
    CertificateEntry entry;
    // The entry is the new certificate itself: its installation, of this certificate, was cut short
    // after it had been written.
    std::optional<IssuedCertificate> installed;
};

class RenewalJob {
public:
    RenewalJob(OpenedCard card, const Arguments& arguments);

    // Makes the request on the card and keeps its record; with --save-request also in that file.
    // Throws Stop: requestFailed; fileFailed before the card is changed where the record could not
    // be kept.
    RenewalRecord request(const CertificateEntry& entry) const;

    // The renewal of the entry, or the rest of an installation that was cut short.
    IssuedCertificate finish(const Unfinished& unfinished) const;

    // The whole renewal from where it stands: the certificate that is kept is used if there is
    // one, else that of --issued, else the authority is asked. Throws Stop.
    IssuedCertificate renew(const CertificateEntry& entry) const;

    // Writes the certificate onto the card and lets its record go. The certificate is shown when
    // the card does not take it. Throws Stop (installationFailed).
    void install(const CertificateEntry& entry, const IssuedCertificate& certificate) const;

    // What was kept for the entry's key and came back from the authority already.
    std::optional<IssuedCertificate> keptCertificate(const CertificateEntry& entry) const;

private:
    IssuedCertificate recovered(const CertificateEntry& entry) const;

    OpenedCard m_card;
    const Arguments& m_arguments;
    RecordStore m_store;
};

// Asks the authority for the record's certificate and keeps the answer, in the record and with
// --save-certificate in that file. Needs no card. Throws Stop.
IssuedCertificate askAuthority(const Arguments& arguments, const RecordStore& store,
                               RenewalRecord& record);

// The kept renewals that the identifier's first digits name, all of them without one. Complains of
// records that cannot be read. Throws Stop (nothingPending, choiceNeeded when digits name several).
std::vector<RenewalRecord> keptRenewals(const RecordStore& store, const QString& firstDigits);

}  // namespace console

#endif
