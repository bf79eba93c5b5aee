// The way "est": Enrolment over Secure Transport (RFC 7030, RFC 8951) over HTTPS.

#ifndef TARVELOQT_HOSTS_ENROLMENT_EST_AUTHORITY_H
#define TARVELOQT_HOSTS_ENROLMENT_EST_AUTHORITY_H

#include "hosts/enrolment/authority.h"

namespace enrolment {

// Keys: "url" (required, https; without a path /.well-known/est is meant, a path is taken as it
// is), "profile" and "profile.OID" (the label behind the path), "renew-by" ("reenroll", the
// default, or "enroll", for servers that renew only who logs in with the old certificate), those of
// httpKeys() and "issuer-anchors".
//
// The authority's certificates (/cacerts) are fetched first: without "issuer-anchors" they are what
// the new certificate must come from, since they came from the verified server. What the authority
// demands of a request (/csrattrs) is compared with it before it is sent.
std::unique_ptr<Authority> estAuthority(const Configuration& configuration);

}  // namespace enrolment

#endif
