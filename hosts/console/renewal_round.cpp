#include "hosts/console/renewal_round.h"

#include "hosts/console/attempts.h"
#include "hosts/console/certificate_choice.h"
#include "hosts/console/json_answer.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"

#include <unistd.h>

#include <algorithm>

namespace console {

namespace {

using Entries = std::vector<CertificateEntry>;

}  // namespace

Entries showCertificatesOnCard(CardWork& work, QJsonObject& answer)
{
    return showCertificates(work, Text("Certificati sulla carta:", "Certificates on the card:"),
                            answer);
}

Entries showCertificatesNow(CardWork& work, QJsonObject& answer)
{
    return showCertificates(
        work, Text("Certificati sulla carta adesso:", "Certificates on the card now:"), answer);
}

Entries chosenCertificates(const Entries& entries, const Arguments& arguments)
{
    if (!arguments.all) {
        return chooseCertificates(entries, arguments.certificate, mayAsk() && !arguments.yes);
    }
    Entries due = dueCertificates(entries);
    if (due.empty()) {
        throw Stop(ExitCode::nothingToRenew);
    }
    return due;
}

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

QJsonObject attemptObject(const CertificateEntry& entry)
{
    return {{QStringLiteral("certificate"), certificateObject(entry, QDate::currentDate())},
            {QStringLiteral("renewed"), QJsonValue()}};
}

Entries renewEach(const OpenedCard& card, const std::vector<Unfinished>& wanted,
                  const Entries& atFirst, const Arguments& arguments, QJsonObject& answer)
{
    Attempts attempts(answer, QStringLiteral("renewals"), wanted.size());
    const RenewalJob job(card, arguments);
    // Numbers and renewal identifiers change with every key and certificate.
    Entries earlier = atFirst;
    for (const Unfinished& one : wanted) {
        attempts.attempt(attemptObject(one.entry), [&](QJsonObject& object) {
            const CertificateEntry* current = sameCertificate(one.entry, earlier);
            const CertificateEntry before = current != nullptr ? *current : one.entry;
            const IssuedCertificate certificate = job.finish({before, one.installed});
            const Entries now = showCertificatesNow(card.work, answer);
            const CertificateEntry& renewed =
                one.installed ? before : renewedEntry(before, certificate.notAfter, earlier, now);
            say(toned(Tone::good, renewalResult(before, renewed), STDOUT_FILENO));
            object.insert(QStringLiteral("renewed"),
                          certificateObject(renewed, QDate::currentDate()));
            earlier = now;
        });
    }
    attempts.conclude();
    return earlier;
}

std::vector<Unfinished> renewalsOf(const Entries& entries)
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

}  // namespace console
