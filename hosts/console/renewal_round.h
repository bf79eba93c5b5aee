// One round of renewals: which certificates, what will happen, the yes, and each one's renewal.

#ifndef TARVELOQT_HOSTS_CONSOLE_RENEWAL_ROUND_H
#define TARVELOQT_HOSTS_CONSOLE_RENEWAL_ROUND_H

#include "hosts/console/opened_card.h"
#include "hosts/console/renewal_job.h"
#include "hosts/console/renewal_plan.h"

#include <QJsonObject>

#include <vector>

namespace console {

// Reads and shows what is on the card. Throws Stop (inventoryFailed).
std::vector<CertificateEntry> showCertificatesOnCard(CardWork& work, QJsonObject& answer);

// Those that the arguments name (--all: every one to be renewed), or the user chooses. Throws Stop
// as chooseCertificates() does.
std::vector<CertificateEntry> chosenCertificates(const std::vector<CertificateEntry>& entries,
                                                 const Arguments& arguments);

// What will happen for each.
std::vector<RenewalPlan> plansOf(const OpenedCard& card, const std::vector<Unfinished>& wanted,
                                 const Arguments& arguments);

// Shows the plan and adds "plan" to the answer. False when it was only to be shown; throws Stop
// when it is not confirmed.
bool mayGoOn(const OpenedCard& card, const std::vector<Unfinished>& wanted,
             const Arguments& arguments, QJsonObject& answer);

// One renewal after the other, each from a fresh look at the card, and then what is on the card;
// adds "renewals" to the answer and renews its "certificates". Returns what is on the card now.
// Throws Stop (Attempts::conclude).
std::vector<CertificateEntry> renewEach(const OpenedCard& card,
                                        const std::vector<Unfinished>& wanted,
                                        const std::vector<CertificateEntry>& atFirst,
                                        const Arguments& arguments, QJsonObject& answer);

// Renewals from where each stands.
std::vector<Unfinished> renewalsOf(const std::vector<CertificateEntry>& entries);

// What an answer tells of the attempt for one certificate; result: name of the field that stays
// null unless it succeeds.
QJsonObject attemptObject(const CertificateEntry& entry, const QString& result);

}  // namespace console

#endif
