#ifndef TARVELOQT_RENEWAL_INSTALLATION_H
#define TARVELOQT_RENEWAL_INSTALLATION_H

#include "renew_context.h"
#include "renewal/preamble.h"
#include "session/log.h"

#include <QString>

namespace renewal {

// Has the card store the issued certificate beside its key, for the record with that identifier or,
// when there is none, for the recovery record. certificate: NUL-terminated, handed on as it is.
// 1 or 0.
int installCertificate(const RenewContext& context, const QString& renewalId, char* certificate,
                       const RenewalVariables& variables, session::Log& log);

}  // namespace renewal

#endif
