#include "hosts/console/card_commands.h"

#include "hosts/console/certificate_choice.h"
#include "hosts/console/json_answer.h"
#include "hosts/console/renewal_job.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/unfinished_renewals.h"

#include <algorithm>
#include <functional>

namespace console {

namespace {

using Entries = std::vector<CertificateEntry>;

QString onCard()
{
    return Text("Certificati sulla carta:", "Certificates on the card:");
}

QString onCardNow()
{
    return Text("Certificati sulla carta adesso:", "Certificates on the card now:");
}

// Those that the arguments name: all that can be renewed, or one.
Entries chosen(const Entries& entries, const Arguments& arguments)
{
    if (!arguments.all) {
        return {chooseCertificate(entries, arguments.certificate, mayAsk() && !arguments.yes)};
    }
    Entries due;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(due),
                 [](const CertificateEntry& entry) { return entry.verdict == Verdict::toRenew; });
    if (due.empty()) {
        throw Stop(ExitCode::nothingToRenew);
    }
    return due;
}

// Shows the plan. False when it was only to be shown; throws Stop when it is not confirmed.
bool mayGoOn(const Entries& entries, const Arguments& arguments, QJsonObject& answer)
{
    QJsonArray plan;
    for (const CertificateEntry& entry : entries) {
        say(renewalPlan(entry, authorityName(arguments)));
        plan.append(planObject(entry, arguments));
    }
    answer.insert(QStringLiteral("plan"), plan);
    if (arguments.dryRun) {
        say(Text("Prova: non è stato scritto nulla.", "Dry run: nothing was written."));
        return false;
    }
    requireConfirmation(arguments);
    return true;
}

// What was tried for several certificates, where a failure of one does not stop the others.
class Attempts {
public:
    // key: of the array in the answer.
    Attempts(QJsonObject& answer, QString key, std::size_t planned)
        : m_answer(answer)
        , m_key(std::move(key))
        , m_isOneOfSeveral(planned > 1)
    {
        m_answer.insert(m_key, QJsonArray());
    }

    // work fills the object; what it throws is its end.
    void attempt(QJsonObject object, const std::function<void(QJsonObject&)>& work)
    {
        Stop end(ExitCode::done);
        try {
            work(object);
        } catch (const Stop& stop) {
            end = stop;
            m_failures.push_back(stop);
        }
        object.insert(QStringLiteral("exit"), exitObject(end));
        m_objects.append(object);
        m_answer.insert(m_key, m_objects);
        if (end.code() != ExitCode::done && m_isOneOfSeveral) {
            say(QLatin1Char('\n') + stopMessage(end, {}) + QLatin1Char('\n'));
        }
    }

    // Throws the one failure there was, or what several come to.
    void conclude() const
    {
        if (m_failures.empty()) {
            return;
        }
        if (m_objects.size() == 1) {
            throw m_failures.front();
        }
        const bool allWait =
            static_cast<int>(m_failures.size()) == m_objects.size() &&
            std::all_of(m_failures.begin(), m_failures.end(),
                        [](const Stop& stop) { return stop.code() == ExitCode::comeBackLater; });
        throw Stop(allWait ? ExitCode::comeBackLater : ExitCode::someFailed,
                   Text("%1 su %2 non completati.", "%1 of %2 not finished.")
                       .arg(QString::number(m_failures.size()), QString::number(m_objects.size())));
    }

private:
    QJsonObject& m_answer;
    QString m_key;
    bool m_isOneOfSeveral;
    QJsonArray m_objects;
    std::vector<Stop> m_failures;
};

QJsonObject attemptObject(const CertificateEntry& entry)
{
    return {{QStringLiteral("certificate"), certificateObject(entry, QDate::currentDate())},
            {QStringLiteral("renewed"), QJsonValue()}};
}

// One renewal after the other, each from a fresh look at the card: numbers and renewal identifiers
// change with every key and certificate.
void renewEach(const OpenedCard& card, const std::vector<Unfinished>& wanted,
               const Entries& atFirst, const Arguments& arguments, QJsonObject& answer)
{
    Attempts attempts(answer, QStringLiteral("renewals"), wanted.size());
    const RenewalJob job(card, arguments);
    Entries earlier = atFirst;
    for (const Unfinished& one : wanted) {
        attempts.attempt(attemptObject(one.entry), [&](QJsonObject& object) {
            const CertificateEntry* current = sameCertificate(one.entry, earlier);
            const CertificateEntry before = current != nullptr ? *current : one.entry;
            const IssuedCertificate certificate = job.finish({before, one.installed});
            const Entries now = showCertificates(card.work, onCardNow(), answer);
            const CertificateEntry& renewed =
                one.installed ? before : renewedEntry(before, certificate.notAfter, earlier, now);
            say(renewalResult(before, renewed));
            object.insert(QStringLiteral("renewed"),
                          certificateObject(renewed, QDate::currentDate()));
            earlier = now;
        });
    }
    attempts.conclude();
}

std::vector<Unfinished> notBegun(const Entries& entries)
{
    std::vector<Unfinished> all;
    for (const CertificateEntry& entry : entries) {
        all.push_back({entry, std::nullopt});
    }
    return all;
}

Entries entriesOf(const std::vector<Unfinished>& unfinished)
{
    Entries entries;
    for (const Unfinished& one : unfinished) {
        entries.push_back(one.entry);
    }
    return entries;
}

}  // namespace

void listCertificates(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    openCard(work, answer);
    showCertificates(work, onCard(), answer);
}

void makeRequests(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = chosen(showCertificates(work, onCard(), answer), arguments);
    if (!arguments.saveRequestFile.isEmpty() && entries.size() > 1) {
        throw Stop(ExitCode::usage,
                   Text("--save-request vale per un solo certificato; le richieste di --all si "
                        "leggono con --json.",
                        "--save-request is for one certificate; the requests of --all are in "
                        "--json's answer."));
    }
    if (!mayGoOn(entries, arguments, answer)) {
        return;
    }
    Attempts attempts(answer, QStringLiteral("requests"), entries.size());
    for (const CertificateEntry& entry : entries) {
        attempts.attempt(attemptObject(entry), [&](QJsonObject& object) {
            const RenewalRecord record = RenewalJob(card, arguments).request(entry);
            object.remove(QStringLiteral("renewed"));
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
    const Entries entries = showCertificates(work, onCard(), answer);
    const Entries wanted = chosen(entries, arguments);
    if (mayGoOn(wanted, arguments, answer)) {
        renewEach(card, notBegun(wanted), entries, arguments, answer);
    }
}

void installIssued(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = showCertificates(work, onCard(), answer);
    const std::vector<Unfinished> ready =
        withCertificate(unfinishedRenewals(card, entries, arguments), card, arguments);
    if (ready.empty()) {
        throw Stop(ExitCode::nothingPending,
                   Text("Nessun certificato attende di essere installato.",
                        "No certificate waits to be installed."),
                   Text("Indicare il file con --issued, o ottenerlo con tarvelo-renew submit.",
                        "Name its file with --issued, or get it with tarvelo-renew submit."));
    }
    if (mayGoOn(entriesOf(ready), arguments, answer)) {
        renewEach(card, ready, entries, arguments, answer);
    }
}

void resumeRenewals(const Arguments& arguments, QJsonObject& answer)
{
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const Entries entries = showCertificates(work, onCard(), answer);
    const std::vector<Unfinished> unfinished = unfinishedRenewals(card, entries, arguments);
    if (unfinished.empty()) {
        throw Stop(ExitCode::nothingPending);
    }
    if (mayGoOn(entriesOf(unfinished), arguments, answer)) {
        renewEach(card, unfinished, entries, arguments, answer);
    }
}

}  // namespace console
