#include "hosts/console/unfinished_renewals.h"

#include "hosts/console/certificate_files.h"

#include <algorithm>

namespace console {

namespace {

using Records = std::vector<RenewalRecord>;

bool keyWaits(const CertificateEntry& entry)
{
    return entry.verdict == Verdict::recovery ||
           (entry.verdict == Verdict::toRenew && !entry.pendingKey.isEmpty());
}

bool isNamed(const CertificateEntry& entry, const QString& name)
{
    return name.isEmpty() || name == QString::number(entry.number) || name == entry.row ||
           name == entry.renewalId;
}

bool isOf(const RenewalRecord& record, const CertificateEntry& entry)
{
    return record.kind == entry.kind && (entry.verdict == Verdict::recovery ||
                                         (record.replaces.issuer == entry.issuerDN &&
                                          record.replaces.serialNumber == entry.serialNumber));
}

bool isAbout(const Records& records, const CertificateEntry& entry)
{
    return std::any_of(records.begin(), records.end(),
                       [&entry](const RenewalRecord& record) { return isOf(record, entry); });
}

// The record's certificate when it is the entry's own.
std::optional<IssuedCertificate> writtenCertificate(const RenewalRecord& record,
                                                    const CertificateEntry& entry)
{
    if (record.state != RecordState::issued || record.kind != entry.kind) {
        return std::nullopt;
    }
    // A record is only read when its certificate is one and has the request's key.
    IssuedCertificate certificate = readCertificates(record.certificate).front();
    const bool isOnCard =
        certificate.serialNumber == withoutLeadingZeros(entry.serialNumber.toUpper()) &&
        certificate.notAfter == entry.validUntil;
    return isOnCard ? std::make_optional(std::move(certificate)) : std::nullopt;
}

bool isForRecord(const std::vector<IssuedCertificate>& issued, const Records& records,
                 const CertificateEntry& entry)
{
    return std::any_of(records.begin(), records.end(), [&](const RenewalRecord& record) {
        return isOf(record, entry) &&
               std::any_of(issued.begin(), issued.end(), [&](const IssuedCertificate& one) {
                   return keyDigest(one.publicKey) == record.publicKeyDigest;
               });
    });
}

}  // namespace

std::vector<Unfinished> unfinishedRenewals(const OpenedCard& card,
                                           const std::vector<CertificateEntry>& entries,
                                           const Arguments& arguments)
{
    Records records = keptRenewals(RecordStore(RecordStore::userFolder()), arguments.renewal);
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [&card](const RenewalRecord& record) {
                                     return record.token.serialNumber != card.identity.serialNumber;
                                 }),
                  records.end());
    std::vector<Unfinished> unfinished;
    for (const CertificateEntry& entry : entries) {
        if (!isNamed(entry, arguments.certificate)) {
            continue;
        }
        if (keyWaits(entry) && (arguments.renewal.isEmpty() || isAbout(records, entry))) {
            unfinished.push_back({entry, std::nullopt});
            continue;
        }
        for (const RenewalRecord& record : records) {
            if (auto written = writtenCertificate(record, entry)) {
                unfinished.push_back({entry, std::move(written)});
                break;
            }
        }
    }
    return unfinished;
}

std::vector<Unfinished> withCertificate(const std::vector<Unfinished>& unfinished,
                                        const OpenedCard& card, const Arguments& arguments)
{
    std::vector<Unfinished> ready;
    if (arguments.issuedFile.isEmpty()) {
        const RenewalJob job(card, arguments);
        std::copy_if(unfinished.begin(), unfinished.end(), std::back_inserter(ready),
                     [&job](const Unfinished& one) {
                         return one.installed || job.keptCertificate(one.entry);
                     });
        return ready;
    }
    const std::vector<IssuedCertificate> issued = readCertificates(readWhole(arguments.issuedFile));
    const Records records = RecordStore(RecordStore::userFolder()).list().records;
    std::copy_if(unfinished.begin(), unfinished.end(), std::back_inserter(ready),
                 [&](const Unfinished& one) { return isForRecord(issued, records, one.entry); });
    if (!ready.empty()) {
        return ready;
    }
    // Begun on another machine: the card itself judges whether the certificate is for its key.
    if (unfinished.size() > 1) {
        throw Stop(ExitCode::choiceNeeded,
                   Text("Più chiavi attendono sulla carta un certificato.",
                        "Several keys on the card wait for a certificate."));
    }
    return unfinished;
}

}  // namespace console
