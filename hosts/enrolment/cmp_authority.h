// The way "cmp": a PKCS#10 request in a CMP message (p10cr, RFC 4210 and RFC 9480) over HTTP or
// HTTPS, by libcrypto's CMP client.
//
// An authority that lets wait is asked again as often as it wishes while the time limit lasts; then
// the answer is a Deferred one, and a later run goes on with the same transaction. If the authority
// does not know it any more, the same request is sent anew, once. Nothing else is ever repeated.
//
// From the moment on in which the authority has taken the request, whatever keeps the certificate
// from coming (a cut connection, an answer that proves nothing) makes a Deferred answer too, with
// the reason: its state is needed to get the certificate, or to confirm it, in a later run.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CMP_AUTHORITY_H
#define TARVELOQT_HOSTS_ENROLMENT_CMP_AUTHORITY_H

#include "hosts/enrolment/authority.h"

#include <memory>

namespace enrolment {

// Reads no file yet. Throws EnrolmentError (misconfigured).
std::unique_ptr<Authority> cmpAuthority(const Configuration& configuration);

}  // namespace enrolment

#endif
