#include "hosts/console/guided_run.h"

#include "hosts/console/certificate_choice.h"
#include "hosts/console/opened_card.h"
#include "hosts/console/renewal_job.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"

#include <card_v_func.h>

namespace console {

namespace {

// Numbers of the certificates whose renewal was begun and not finished.
QString begunNumbers(const std::vector<CertificateEntry>& entries)
{
    QStringList numbers;
    for (const CertificateEntry& entry : entries) {
        if (entry.canBeChosen() && !entry.pendingKey.isEmpty()) {
            numbers.append(QString::number(entry.number));
        }
    }
    return numbers.join(QStringLiteral(", "));
}

}  // namespace

void guidedRun(const Arguments& arguments, QJsonObject& answer)
{
    say(Text("%1 %2: rinnovo dei certificati di una carta di firma\n",
             "%1 %2: renewal of the certificates on a signature card\n")
            .arg(nomeLibreria, versioneLibreria));
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    const std::vector<CertificateEntry> entries = showCertificates(
        work, Text("Certificati sulla carta:", "Certificates on the card:"), answer);
    const QString begun = begunNumbers(entries);
    if (!begun.isEmpty()) {
        say(Text("Rinnovo già iniziato, da completare: %1.\n",
                 "Begun already, to be finished: %1.\n")
                .arg(begun));
    }
    const CertificateEntry entry =
        chooseCertificate(entries, arguments.certificate, mayAsk() && !arguments.yes);
    say(renewalPlan(entry, authorityName(arguments)));
    if (arguments.dryRun) {
        say(Text("Prova: non è stato scritto nulla.", "Dry run: nothing was written."));
        return;
    }
    requireConfirmation(arguments);
    const IssuedCertificate certificate = RenewalJob(card, arguments).renew(entry);
    const std::vector<CertificateEntry> now = showCertificates(
        work, Text("Certificati sulla carta adesso:", "Certificates on the card now:"), answer);
    say(renewalResult(entry, renewedEntry(entry, certificate.notAfter, entries, now)));
}

}  // namespace console
