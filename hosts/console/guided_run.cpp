#include "hosts/console/guided_run.h"

#include "hosts/console/certificate_choice.h"
#include "hosts/console/renewal_round.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"
#include "hosts/console/unfinished_renewals.h"

#include <card_v_func.h>

namespace console {

namespace {

using Entries = std::vector<CertificateEntry>;

// The user is led, not told by arguments what to do.
bool leads(const Arguments& arguments)
{
    return mayAsk() && !arguments.yes && !arguments.all && !arguments.dryRun &&
           arguments.certificate.isEmpty();
}

// Offers to finish what an earlier run began; the entries are then those on the card now. False
// when there was nothing to finish, or it is not wanted.
bool finishEarlier(const OpenedCard& card, Entries& entries, const Arguments& arguments,
                   QJsonObject& answer)
{
    const std::vector<Unfinished> unfinished = unfinishedRenewals(card, entries, arguments);
    if (unfinished.empty()) {
        return false;
    }
    say(wrapped(Text("Un rinnovo è stato iniziato e non completato:",
                     "A renewal was begun and not finished:")));
    for (const RenewalPlan& plan : plansOf(card, unfinished, arguments)) {
        say(planScreen(plan));
    }
    if (!confirmed(Text("Completarlo adesso?", "Finish it now?"))) {
        return false;
    }
    entries = renewEach(card, unfinished, entries, arguments, answer);
    return true;
}

}  // namespace

void guidedRun(const Arguments& arguments, QJsonObject& answer)
{
    say(Text("%1 %2: rinnovo dei certificati di una carta di firma\n",
             "%1 %2: renewal of the certificates on a signature card\n")
            .arg(nomeLibreria, versioneLibreria));
    CardWork work(arguments);
    const OpenedCard card = openCard(work, answer);
    Entries entries = showCertificatesOnCard(work, answer);
    const bool isLed = leads(arguments);
    bool anyDone = isLed && finishEarlier(card, entries, arguments, answer);
    while (!anyDone || (isLed && !dueCertificates(entries).empty())) {
        std::vector<Unfinished> wanted;
        try {
            wanted = renewalsOf(chosenCertificates(entries, arguments));
            if (!mayGoOn(card, wanted, arguments, answer)) {
                return;
            }
        } catch (const Stop& stop) {
            // Whoever leaves after a renewal has done what there was to do.
            if (anyDone && stop.code() == ExitCode::declined) {
                return;
            }
            throw;
        }
        entries = renewEach(card, wanted, entries, arguments, answer);
        anyDone = true;
    }
}

}  // namespace console
