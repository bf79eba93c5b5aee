// A card with its PIN given and checked, and the tables of what lies on it.

#ifndef TARVELOQT_HOSTS_CONSOLE_OPENED_CARD_H
#define TARVELOQT_HOSTS_CONSOLE_OPENED_CARD_H

#include "hosts/console/card_work.h"

#include <QJsonObject>

#include <vector>

namespace console {

struct OpenedCard {
    CardWork& work;
    QString reader;
    CardIdentity identity;
};

// Reader, PIN and card check, each said as it is passed; adds "card" to the answer. Throws Stop.
OpenedCard openCard(CardWork& work, QJsonObject& answer);

// Shows the table under the heading; adds "certificates" to the answer, replacing an earlier one.
void showCertificates(const std::vector<CertificateEntry>& entries, const QString& heading,
                      QJsonObject& answer);

// The certificate on the card that is this one now, whatever its number; none when it is gone.
const CertificateEntry* sameCertificate(const CertificateEntry& wanted,
                                        const std::vector<CertificateEntry>& entries);

// The entry that an installation of this certificate has brought, which was not among the earlier
// ones. Throws Stop (notSeenOnCard).
const CertificateEntry& renewedEntry(const CertificateEntry& before, QDate validUntil,
                                     const std::vector<CertificateEntry>& earlier,
                                     const std::vector<CertificateEntry>& now);

}  // namespace console

#endif
