// Public keys in one comparable form, whether a certificate or a token tells of them.

#ifndef TARVELOQT_CARDLIBS_X509_PUBLIC_KEY_H
#define TARVELOQT_CARDLIBS_X509_PUBLIC_KEY_H

#include "cardlibs/bytes.h"
#include "cardlibs/x509/pointers.h"

#include <optional>

namespace cardlibs::x509 {

struct PublicKey {
    enum class Algorithm { rsa, ec };

    Algorithm algorithm = Algorithm::rsa;
    // RSA: big-endian without leading zeros.
    Bytes modulus;
    Bytes exponent;
    // EC: libcrypto's number of the named curve, and the uncompressed point (X9.62).
    int curve = 0;
    Bytes point;

    bool operator==(const PublicKey& other) const;
    bool operator!=(const PublicKey& other) const { return !(*this == other); }

    // RSA: of the modulus. EC: of the field.
    unsigned long bits() const;
};

// Nothing for algorithms and curves that have no form here.
std::optional<PublicKey> publicKeyOf(const EVP_PKEY* key);

// From the values of CKA_MODULUS and CKA_PUBLIC_EXPONENT.
std::optional<PublicKey> rsaPublicKey(const Bytes& modulus, const Bytes& exponent);

// From the values of CKA_EC_PARAMS (a named curve) and CKA_EC_POINT (a DER octet string, or the
// bare point that some tokens give).
std::optional<PublicKey> ecPublicKey(const Bytes& parameters, const Bytes& point);

// The curve that CKA_EC_PARAMS names; 0 when it names none.
int curveOf(const Bytes& parameters);
// CKA_EC_PARAMS for a curve.
Bytes curveParameters(int curve);

// RSAPublicKey (RFC 8017, A.1.1), or the uncompressed point; empty when libcrypto does not accept
// the key.
Bytes encodedKey(const PublicKey& key);
// SubjectPublicKeyInfo (RFC 5280, section 4.1); empty in the same case.
Bytes subjectPublicKeyInfo(const PublicKey& key);
// The bytes in a DER octet string, as tokens wrap points.
Bytes octetString(const Bytes& content);

// For libcrypto; null when it does not accept the key.
KeyPointer evpKey(const PublicKey& key);

}  // namespace cardlibs::x509

#endif
