#include "hosts/console/renewal_round.h"

#include "hosts/console/attempts.h"
#include "hosts/console/authority_way.h"
#include "hosts/console/certificate_choice.h"
#include "hosts/console/json_answer.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"

#include <unistd.h>

#include <algorithm>

namespace console {

namespace {

using Entries = std::vector<CertificateEntry>;

// One file cannot hold what is wanted of several certificates.
void requireFileForEach(std::size_t certificates, const Arguments& arguments)
{
    const bool namesFile =
        !arguments.saveRequestFile.isEmpty() || !arguments.saveCertificateFile.isEmpty();
    if (namesFile && certificates > 1) {
        throw Stop(ExitCode::usage,
                   Text("--save-request e --save-certificate valgono per un solo certificato.",
                        "--save-request and --save-certificate are for one certificate."),
                   Text("Sceglierne uno con --certificate, o togliere queste opzioni: richieste e "
                        "certificati restano comunque nei rinnovi conservati.",
                        "Choose one with --certificate, or leave these options out: requests and "
                        "certificates are kept with the renewals anyway."));
    }
}

// An authority that cannot be asked for the policy is no reason to make a key.
void requirePolicy(const RenewalPlan& plan, const Arguments& arguments)
{
    if (std::find(plan.steps.begin(), plan.steps.end(), PlanStep::askAuthority) ==
        plan.steps.end()) {
        return;
    }
    try {
        authorityOf(arguments)->requirePolicy(plan.entry.policy);
    } catch (const enrolment::EnrolmentError& error) {
        throw stopOf(error);
    }
}

// Which of several renewals begins now.
QString heading(const CertificateEntry& entry, std::size_t number, std::size_t planned)
{
    return Text("\nRinnovo %1 di %2: %3, %4", "\nRenewal %1 of %2: %3, %4")
        .arg(QString::number(number), QString::number(planned), entry.kindName, entry.holder);
}

}  // namespace

Entries showCertificatesOnCard(CardWork& work, QJsonObject& answer)
{
    Entries entries = work.readCertificates();
    showCertificates(entries, Text("Certificati sulla carta:", "Certificates on the card:"),
                     answer);
    return entries;
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

std::vector<RenewalPlan> plansOf(const OpenedCard& card, const std::vector<Unfinished>& wanted,
                                 const Arguments& arguments)
{
    const RenewalJob job(card, arguments);
    std::vector<RenewalPlan> plans;
    for (const Unfinished& one : wanted) {
        const bool isKept = one.installed || job.keptCertificate(one.entry);
        plans.push_back(renewalPlan(one.entry, isKept, arguments));
    }
    return plans;
}

bool mayGoOn(const OpenedCard& card, const std::vector<Unfinished>& wanted,
             const Arguments& arguments, QJsonObject& answer)
{
    requireFileForEach(wanted.size(), arguments);
    QJsonArray plan;
    for (const RenewalPlan& one : plansOf(card, wanted, arguments)) {
        requirePolicy(one, arguments);
        say(planScreen(one));
        plan.append(planObject(one));
    }
    answer.insert(QStringLiteral("plan"), plan);
    if (arguments.dryRun) {
        say(Text("Prova: non è stato scritto nulla.", "Dry run: nothing was written."));
        return false;
    }
    requireConfirmation(arguments);
    return true;
}

QJsonObject attemptObject(const CertificateEntry& entry, const QString& result)
{
    return {{QStringLiteral("certificate"), certificateObject(entry, QDate::currentDate())},
            {result, QJsonValue()}};
}

Entries renewEach(const OpenedCard& card, const std::vector<Unfinished>& wanted,
                  const Entries& atFirst, const Arguments& arguments, QJsonObject& answer)
{
    Attempts attempts(answer, QStringLiteral("renewals"), wanted.size());
    const RenewalJob job(card, arguments);
    // Numbers and renewal identifiers change with every key and certificate.
    Entries earlier = atFirst;
    std::size_t number = 0;
    bool anyRenewed = false;
    for (const Unfinished& one : wanted) {
        if (wanted.size() > 1) {
            say(toned(Tone::heading, heading(one.entry, ++number, wanted.size()), STDOUT_FILENO));
        }
        attempts.attempt(
            attemptObject(one.entry, QStringLiteral("renewed")), [&](QJsonObject& object) {
                const CertificateEntry* current = sameCertificate(one.entry, earlier);
                const CertificateEntry before = current != nullptr ? *current : one.entry;
                const IssuedCertificate certificate = job.finish({before, one.installed});
                const Entries now = card.work.readCertificates();
                const CertificateEntry& renewed =
                    one.installed ? before
                                  : renewedEntry(before, certificate.notAfter, earlier, now);
                say(toned(Tone::good, renewalResult(before, renewed), STDOUT_FILENO));
                object.insert(QStringLiteral("renewed"),
                              certificateObject(renewed, QDate::currentDate()));
                earlier = now;
                anyRenewed = true;
            });
    }
    if (anyRenewed) {
        showCertificates(earlier,
                         Text("Certificati sulla carta adesso:", "Certificates on the card now:"),
                         answer);
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

}  // namespace console
