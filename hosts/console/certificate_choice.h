// Which certificate to renew.

#ifndef TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_CHOICE_H
#define TARVELOQT_HOSTS_CONSOLE_CERTIFICATE_CHOICE_H

#include "hosts/console/arguments.h"
#include "hosts/console/certificate_entry.h"

#include <QString>

#include <vector>

namespace console {

// Those that are to be renewed now.
std::vector<CertificateEntry> dueCertificates(const std::vector<CertificateEntry>& entries);

// The one that `wanted` names: its number in the table, its row key ("AUT: 1") or its renewal
// identifier. With an empty `wanted`, the only one that can be renewed; among several the user is
// asked for one or all that are due, unless mayAsk is false. Never empty. Throws Stop when there is
// none (nothingToRenew), the name fits none or the choice stays open (choiceNeeded), or the user
// answers nothing (declined).
std::vector<CertificateEntry> chooseCertificates(const std::vector<CertificateEntry>& entries,
                                                 const QString& wanted, bool mayAsk);

// Asks a yes-or-no question; anything but a clear yes, the end of input too, is no.
bool confirmed(const QString& question);

// Lets the card be changed only with --yes or a clear yes. Throws Stop: declined, and
// confirmationNeeded where nobody can be asked.
void requireConfirmation(const Arguments& arguments);

}  // namespace console

#endif
