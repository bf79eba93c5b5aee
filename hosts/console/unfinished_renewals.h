// Which renewals were begun on a card and not finished: from what lies on the card, and from the
// records that this machine keeps.

#ifndef TARVELOQT_HOSTS_CONSOLE_UNFINISHED_RENEWALS_H
#define TARVELOQT_HOSTS_CONSOLE_UNFINISHED_RENEWALS_H

#include "hosts/console/renewal_job.h"

#include <vector>

namespace console {

// Certificates whose new key waits on the card, recovery entries, and new certificates whose
// installation left its record. entries: of a fresh inventory. With --renewal those of that record
// alone, with --certificate that entry alone. Throws Stop (choiceNeeded, nothingPending).
std::vector<Unfinished> unfinishedRenewals(const OpenedCard& card,
                                           const std::vector<CertificateEntry>& entries,
                                           const Arguments& arguments);

// Of these the ones whose certificate is there already: kept, or in the file of --issued. Throws
// Stop (choiceNeeded) when it is not clear for which one the file is.
std::vector<Unfinished> withCertificate(const std::vector<Unfinished>& unfinished,
                                        const OpenedCard& card, const Arguments& arguments);

}  // namespace console

#endif
