// The card as the commands use it: each step of the renewal library's order of calls, with its
// refusals turned into Stop. Nothing here asks or shows anything but what the library itself asks.

#ifndef TARVELOQT_HOSTS_CONSOLE_CARD_WORK_H
#define TARVELOQT_HOSTS_CONSOLE_CARD_WORK_H

#include "hosts/console/arguments.h"
#include "hosts/console/card_session.h"
#include "hosts/console/certificate_entry.h"

#include <QByteArray>

#include <vector>

namespace console {

// The token's own words, without control characters.
struct CardIdentity {
    QString manufacturer;
    QString model;
    QString serialNumber;
    QString module;
    bool isCns = false;
};

class CardWork {
public:
    // Starts a session of the library.
    explicit CardWork(const Arguments& arguments);

    // The reader that was named, else that of the configuration file, else as reader_choice.h
    // tells. Throws Stop (noReader).
    QString chooseReader();

    // Gives the card the PIN, once. Throws Stop: pinUnusable before the card sees it, pinRefused,
    // cardUnreachable; lastTry and pinBlocked where the card tells so beforehand.
    void givePin();

    // Throws Stop (cardUnreachable, cardRefused).
    CardIdentity checkCard();

    // What lies on the card now; empty when it holds nothing that could be shown. Throws Stop
    // (inventoryFailed).
    std::vector<CertificateEntry> readCertificates();

    // PEM. Throws Stop (requestFailed). The certificate's renewal identifier is another one
    // afterwards: read the certificates again before installing.
    QByteArray makeRequest(const CertificateEntry& entry);

    // Beside its key; entry: the certificate that it replaces, or the recovery entry, or itself,
    // to complete an installation that was cut short. Throws Stop (installationFailed).
    void install(const CertificateEntry& entry, const QByteArray& pem);

private:
    QString givenPin() const;
    void askForPin();

    const Arguments& m_arguments;
    CardSession m_session;
};

}  // namespace console

#endif
