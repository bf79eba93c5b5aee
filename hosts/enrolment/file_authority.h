// The way "file": a folder in which the request lies until somebody puts the certificate beside it.

#ifndef TARVELOQT_HOSTS_ENROLMENT_FILE_AUTHORITY_H
#define TARVELOQT_HOSTS_ENROLMENT_FILE_AUTHORITY_H

#include "hosts/enrolment/authority.h"

namespace enrolment {

// Keys: "folder" (required, must be there), "issuer-anchors". All files of a request are named
// "tarvelo-" and the first 16 digits of the SHA-256 of its public key: the request is ".p10.pem",
// what else the authority should know ".json" ("policy", "notAfter", "isRenewal"), and the
// certificate is awaited as ".crt", ".cer", ".pem", ".der", ".p7b" or ".p7c"; its content decides
// what it is. A request that is in the folder already is replaced.
std::unique_ptr<Authority> fileAuthority(const Configuration& configuration);

}  // namespace enrolment

#endif
