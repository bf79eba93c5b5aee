// What has to be signed how, and whether a signature is right.

#ifndef TARVELOQT_CARDLIBS_X509_SIGNING_H
#define TARVELOQT_CARDLIBS_X509_SIGNING_H

#include "cardlibs/bytes.h"
#include "cardlibs/x509/public_key.h"

namespace cardlibs::x509 {

enum class Hash { sha256, sha384 };

// As strong as the key: SHA-384 with P-384, SHA-256 otherwise.
Hash hashFor(const PublicKey& key);

Bytes digestOf(Hash hash, const Bytes& data);

// DigestInfo (RFC 8017, section 9.2), which the raw RSA mechanism of a token pads and signs.
Bytes digestInfo(Hash hash, const Bytes& data);

// A token gives an EC signature as r and s of equal length; X.509 wants Ecdsa-Sig-Value (RFC 3279,
// section 2.2.3). Empty when the token's bytes are not two halves.
Bytes derEcSignature(const Bytes& halves);

// signature: PKCS #1 v1.5, or Ecdsa-Sig-Value.
bool verifies(const PublicKey& key, Hash hash, const Bytes& data, const Bytes& signature);

}  // namespace cardlibs::x509

#endif
