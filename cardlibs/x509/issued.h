// The certificate that an authority sends back, in whatever form it comes.

#ifndef TARVELOQT_CARDLIBS_X509_ISSUED_H
#define TARVELOQT_CARDLIBS_X509_ISSUED_H

#include "cardlibs/x509/certificate.h"

#include <vector>

namespace cardlibs::x509 {

// The longest thing that is looked at.
constexpr std::size_t longestIssued = 65536;

// Every certificate in the bytes: PEM (certificates, PKCS#7), base64 without its PEM frame, DER of
// a certificate or of PKCS#7. A chain may come with it. Empty when any part does not parse whole.
std::vector<Certificate> parseIssued(const Bytes& bytes);

// The bytes behind a pointer that comes without a length: binary DER by its own length, a text up
// to its NUL. Empty when that is more than longestIssued.
Bytes issuedBytes(const char* text);

}  // namespace cardlibs::x509

#endif
