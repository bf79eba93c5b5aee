#ifndef TARVELOQT_RENEWAL_REQUEST_H
#define TARVELOQT_RENEWAL_REQUEST_H

#include "renew_context.h"
#include "renewal/preamble.h"
#include "session/log.h"

#include <QString>

namespace renewal {

// Has the card make a key pair and a certificate request for the record with that identifier.
// requestBuffer: requestBufferSize bytes, zeroed only when the card is about to be asked. 1 or 0.
int requestCertificate(const RenewContext& context, const QString& renewalId, char* requestBuffer,
                       const RenewalVariables& variables, session::Log& log);

}  // namespace renewal

#endif
