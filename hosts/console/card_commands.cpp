#include "hosts/console/card_commands.h"

#include "hosts/console/attempts.h"
#include "hosts/console/json_answer.h"
#include "hosts/console/renewal_round.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/unfinished_renewals.h"

namespace console {

using Entries = std::vector<CertificateEntry>;

void listCertificates(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    openCard(work, answer);
    showCertificatesOnCard(work, answer);
}

void makeRequests(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = chosenCertificates(showCertificatesOnCard(work, answer), arguments);
    if (!mayGoOn(card, renewalsOf(entries), arguments, answer)) {
        return;
    }
    Attempts attempts(answer, QStringLiteral("requests"), entries.size());
    const RenewalJob job(card, arguments);
    for (const CertificateEntry& entry : entries) {
        attempts.attempt(attemptObject(entry, QStringLiteral("renewal")), [&](QJsonObject& object) {
            const RenewalRecord record = job.request(entry);
            object.insert(QStringLiteral("renewal"), renewalObject(record));
            if (arguments.saveRequestFile.isEmpty()) {
                say(QString::fromLatin1(record.request));
            }
        });
    }
    attempts.conclude();
}

void submitRequests(const Arguments& arguments, QJsonObject& answer)
{
    const RecordStore store(RecordStore::userFolder());
    std::vector<RenewalRecord> records = keptRenewals(store, arguments.renewal);
    if (records.empty()) {
        throw Stop(ExitCode::nothingPending);
    }
    Attempts attempts(answer, QStringLiteral("renewals"), records.size());
    for (RenewalRecord& record : records) {
        say(renewalLine(record));
        attempts.attempt({}, [&](QJsonObject& object) {
            object.insert(QStringLiteral("renewal"), renewalObject(record));
            if (record.state != RecordState::issued) {
                askAuthority(arguments, store, record);
                object.insert(QStringLiteral("renewal"), renewalObject(record));
            }
            say(Text("Il certificato attende di essere scritto sulla carta: tarvelo-renew install.",
                     "The certificate waits to be written onto the card: tarvelo-renew install."));
        });
    }
    attempts.conclude();
}

void renewCertificates(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = showCertificatesOnCard(work, answer);
    const std::vector<Unfinished> wanted = renewalsOf(chosenCertificates(entries, arguments));
    if (mayGoOn(card, wanted, arguments, answer)) {
        renewEach(card, wanted, entries, arguments, answer);
    }
}

void installIssued(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = showCertificatesOnCard(work, answer);
    const std::vector<Unfinished> ready =
        withCertificate(unfinishedRenewals(card, entries, arguments), card, arguments);
    if (ready.empty()) {
        throw Stop(ExitCode::nothingPending,
                   Text("Nessun certificato attende di essere installato.",
                        "No certificate waits to be installed."),
                   Text("Indicare il file con --issued, o ottenerlo con tarvelo-renew submit.",
                        "Name its file with --issued, or get it with tarvelo-renew submit."));
    }
    if (mayGoOn(card, ready, arguments, answer)) {
        renewEach(card, ready, entries, arguments, answer);
    }
}

void resumeRenewals(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = showCertificatesOnCard(work, answer);
    const std::vector<Unfinished> unfinished = unfinishedRenewals(card, entries, arguments);
    if (unfinished.empty()) {
        throw Stop(ExitCode::nothingPending);
    }
    if (mayGoOn(card, unfinished, arguments, answer)) {
        renewEach(card, unfinished, entries, arguments, answer);
    }
}

}  // namespace console
