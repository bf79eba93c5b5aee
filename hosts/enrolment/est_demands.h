// What an EST server demands of a certificate request (RFC 7030, section 4.5.2).

#ifndef TARVELOQT_HOSTS_ENROLMENT_EST_DEMANDS_H
#define TARVELOQT_HOSTS_ENROLMENT_EST_DEMANDS_H

#include "hosts/enrolment/openssl_object.h"

#include <QByteArray>
#include <QStringList>

#include <optional>

namespace enrolment {

// The demands of `csrAttributes` (DER, CsrAttrs) that the request does not meet, each a phrase to
// show; nothing when the bytes are no CsrAttrs.
//
// Key types, curves, signature algorithms and digests are alternatives among themselves: the
// request must have one of each sort that is listed. Extensions and parts of the subject must all
// be there, an extension with the value when one is given. A challenge password would have to be in
// the request before the card signs it, so it is never met. What OpenSSL does not know is ignored,
// as the RFC demands.
std::optional<QStringList> unmetDemands(const QByteArray& csrAttributes, X509_REQ* request);

}  // namespace enrolment

#endif
