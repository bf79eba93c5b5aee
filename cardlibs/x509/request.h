// A certificate request (PKCS #10, RFC 2986) that somebody else signs.

#ifndef TARVELOQT_CARDLIBS_X509_REQUEST_H
#define TARVELOQT_CARDLIBS_X509_REQUEST_H

#include "cardlibs/bytes.h"
#include "cardlibs/x509/certificate.h"
#include "cardlibs/x509/signing.h"

#include <functional>
#include <string>

namespace cardlibs::x509 {

// Takes the bytes to sign, gives the signature as X.509 wants it (RSA: PKCS #1 v1.5).
using Signer = std::function<Bytes(const Bytes& toSign)>;

// Builds the request with the subject byte for byte as given and the key usage and extended key
// usage of the certificate to renew, has it signed, verifies it and gives it as PEM (RFC 7468).
// Empty when libcrypto does not accept a part of it or the signature does not verify. What the
// signer throws passes through.
std::string buildRequest(const Bytes& subject, const PublicKey& key, const Certificate& renewed,
                         const Signer& signer);

}  // namespace cardlibs::x509

#endif
