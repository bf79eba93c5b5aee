#include "hosts/console/renewal_job.h"

#include "hosts/console/authority_way.h"
#include "hosts/console/certificate_files.h"
#include "hosts/console/certificate_source.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <QDateTime>

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace console {

namespace {

void show(const IssuedCertificate& certificate)
{
    say(Text("Conservare questo certificato:\n\n%1", "Keep this certificate:\n\n%1")
            .arg(QString::fromLatin1(certificate.pem)));
}

void saveIfWanted(const Arguments& arguments, const IssuedCertificate& certificate)
{
    if (arguments.saveCertificateFile.isEmpty()) {
        return;
    }
    try {
        writeWhole(arguments.saveCertificateFile, certificate.pem);
    } catch (const Stop&) {
        show(certificate);
        throw;
    }
    say(Text("Il certificato è in %1", "The certificate is in %1")
            .arg(arguments.saveCertificateFile));
}

// A key that was asked for before keeps what is known of it; its request is signed anew, but an
// authority that asked to come back knows it as it was.
RenewalRecord recordOf(const QByteArray& request, const RecordStore& store)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    RenewalRecord fresh = recordOfRequest(request, now);
    std::optional<RenewalRecord> kept = store.find(fresh.publicKeyDigest);
    if (!kept) {
        return fresh;
    }
    if (kept->authority.state.isEmpty()) {
        kept->request = fresh.request;
        kept->changedAt = fresh.changedAt;
    }
    return *std::move(kept);
}

}  // namespace

IssuedCertificate askAuthority(const Arguments& arguments, const RecordStore& store,
                               RenewalRecord& record)
{
    const auto authority = arguments.issuedFile.isEmpty() ? authorityOf(arguments) : nullptr;
    IssuedCertificate certificate =
        authority ? enrolled(*authority, arguments.authority->name, store, record)
                  : handedCertificate(arguments, record);
    say(wrapped(
        Text("Il certificato è arrivato, emesso da %1, valido fino al %2.",
             "The certificate is there, issued by %1, valid until %2.")
            .arg(printable(certificate.issuer), certificate.notAfter.toString(Qt::ISODate))));
    keepCertificate(record, certificate.pem, QDateTime::currentDateTimeUtc());
    store.save(record);
    saveIfWanted(arguments, certificate);
    return certificate;
}

std::vector<RenewalRecord> keptRenewals(const RecordStore& store, const QString& firstDigits)
{
    RecordListing listing = store.list();
    for (const Stop& complaint : listing.complaints) {
        complain(stopMessage(complaint, {}, STDERR_FILENO));
    }
    std::vector<RenewalRecord>& records = listing.records;
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [&firstDigits](const RenewalRecord& record) {
                                     return !record.publicKeyDigest.startsWith(firstDigits,
                                                                               Qt::CaseInsensitive);
                                 }),
                  records.end());
    if (!firstDigits.isEmpty() && records.empty()) {
        throw Stop(ExitCode::nothingPending, Text("Nessun rinnovo conservato comincia con %1.",
                                                  "No kept renewal begins with %1.")
                                                 .arg(firstDigits));
    }
    if (!firstDigits.isEmpty() && records.size() > 1) {
        throw Stop(ExitCode::choiceNeeded,
                   Text("Più di un rinnovo conservato comincia con %1.",
                        "Several kept renewals begin with %1.")
                       .arg(firstDigits),
                   Text("Dare più cifre dell'identificativo (tarvelo-renew status).",
                        "Give more digits of the identifier (tarvelo-renew status)."));
    }
    return std::move(records);
}

RenewalJob::RenewalJob(OpenedCard card, const Arguments& arguments)
    : m_card(std::move(card))
    , m_arguments(arguments)
    , m_store(RecordStore::userFolder())
{
}

RenewalRecord RenewalJob::request(const CertificateEntry& entry) const
{
    m_store.prepare();
    say(entry.pendingKey.isEmpty()
            ? Text("La carta genera la chiave e la richiesta; può richiedere qualche secondo.",
                   "The card makes the key and the request; this can take some seconds.")
            : Text("La carta firma la richiesta con la chiave in attesa.",
                   "The card signs the request with the waiting key."));
    RenewalRecord record = recordOf(m_card.work.makeRequest(entry), m_store);
    record.kind = entry.kind;
    record.replaces = {entry.issuerDN, entry.serialNumber, entry.holder};
    record.reader = m_card.reader;
    record.token = {m_card.identity.model, m_card.identity.serialNumber};
    record.policy = entry.policy;
    record.expectedEnd = dateOf(entry.expectedEnd);
    m_store.save(record);
    if (!m_arguments.saveRequestFile.isEmpty()) {
        writeWhole(m_arguments.saveRequestFile, record.request);
        say(Text("La richiesta è in %1", "The request is in %1").arg(m_arguments.saveRequestFile));
    }
    return record;
}

IssuedCertificate RenewalJob::finish(const Unfinished& unfinished) const
{
    if (!unfinished.installed) {
        return renew(unfinished.entry);
    }
    install(unfinished.entry, *unfinished.installed);
    return *unfinished.installed;
}

IssuedCertificate RenewalJob::renew(const CertificateEntry& entry) const
{
    if (entry.verdict == Verdict::recovery) {
        IssuedCertificate certificate = recovered(entry);
        install(entry, certificate);
        return certificate;
    }
    if (!m_arguments.issuedFile.isEmpty() && entry.pendingKey.isEmpty()) {
        throw Stop(ExitCode::certificateRefused,
                   Text("Nessuna chiave sulla carta attende questo certificato.",
                        "No key on the card waits for this certificate."),
                   Text("Rinnovare senza --issued, o scegliere con --certificate quello a cui il "
                        "file è destinato.",
                        "Renew without --issued, or choose with --certificate the one that the "
                        "file is for."));
    }
    if (const auto kept = keptCertificate(entry)) {
        say(Text("Il certificato era già arrivato e viene installato.",
                 "The certificate had come already and is installed."));
        try {
            install(entry, *kept);
            return *kept;
        } catch (const Stop& stop) {
            if (stop.code() != ExitCode::installationFailed || !m_arguments.authority) {
                throw;
            }
            say(Text("La carta non lo accetta; l'autorità viene interpellata di nuovo.",
                     "The card does not take it; the authority is asked again."));
        }
    }
    RenewalRecord record = request(entry);
    IssuedCertificate certificate = askAuthority(m_arguments, m_store, record);
    install(entry, certificate);
    return certificate;
}

void RenewalJob::install(const CertificateEntry& entry, const IssuedCertificate& certificate) const
{
    say(Text("La carta scrive il certificato.", "The card writes the certificate."));
    try {
        m_card.work.install(entry, certificate.pem);
    } catch (const Stop&) {
        if (m_arguments.saveCertificateFile.isEmpty() && m_arguments.issuedFile.isEmpty()) {
            show(certificate);
        }
        throw;
    }
    m_store.remove(keyDigest(certificate.publicKey));
}

IssuedCertificate RenewalJob::recovered(const CertificateEntry& entry) const
{
    if (m_arguments.issuedFile.isEmpty()) {
        if (const auto kept = keptCertificate(entry)) {
            return *kept;
        }
    }
    IssuedCertificate certificate = recoveredCertificate(m_arguments);
    saveIfWanted(m_arguments, certificate);
    return certificate;
}

std::optional<IssuedCertificate> RenewalJob::keptCertificate(const CertificateEntry& entry) const
{
    const bool keyWaits = !entry.pendingKey.isEmpty() || entry.verdict == Verdict::recovery;
    if (!keyWaits || !m_arguments.issuedFile.isEmpty()) {
        return std::nullopt;
    }
    // One that cannot be read is complained of where the user looks for it (status).
    std::vector<RenewalRecord> records = m_store.list().records;
    if (entry.verdict != Verdict::recovery) {
        records = recordsReplacing(records, entry.issuerDN, entry.serialNumber);
    }
    const auto issued =
        std::find_if(records.rbegin(), records.rend(), [&](const RenewalRecord& record) {
            return record.state == RecordState::issued && record.kind == entry.kind &&
                   record.token.serialNumber == m_card.identity.serialNumber;
        });
    // A record is only read when its certificate is one and has the request's key.
    return issued != records.rend()
               ? std::make_optional(readCertificates(issued->certificate).front())
               : std::nullopt;
}

}  // namespace console
