// Signatures by a key on the card, in the form that X.509 wants.

#ifndef TARVELOQT_CARDLIBS_RENEWING_KEY_SIGNER_H
#define TARVELOQT_CARDLIBS_RENEWING_KEY_SIGNER_H

#include "cardlibs/token/session.h"
#include "cardlibs/x509/public_key.h"

#include <vector>

namespace cardlibs::renewing {

// A private key that can be asked to sign during the session.
struct SigningKey {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    x509::PublicKey publicKey;
    bool wantsPinEachTime = false;
};

// True for what cards answer when a mechanism that they list is not for this key or this data.
bool refusesMechanism(unsigned long number);

class KeySigner {
public:
    // mechanisms: those of the slot. pin: lives as long as the signer, which does not copy it.
    // Throws CardError (CKR_MECHANISM_INVALID) when the card has no mechanism for such a key.
    KeySigner(token::Session& session, SigningKey key,
              const std::vector<CK_MECHANISM_TYPE>& mechanisms, const char* pin);

    // Throws the same when there will be none for a key like this one.
    static void requireMechanism(const x509::PublicKey& key,
                                 const std::vector<CK_MECHANISM_TYPE>& mechanisms);

    // Hashes with x509::hashFor the key; by the mechanism that hashes on the card where there is
    // one that works, else by the raw one. RSA: PKCS #1 v1.5; EC: Ecdsa-Sig-Value.
    Bytes sign(const Bytes& data);

    // Throws CardError (keyDoesNotSign) unless a signature over fresh data verifies.
    void prove();

private:
    Bytes signWith(CK_MECHANISM_TYPE mechanism, const Bytes& data);

    token::Session& m_session;
    SigningKey m_key;
    std::vector<CK_MECHANISM_TYPE> m_usable;
    const char* m_pin;
};

}  // namespace cardlibs::renewing

#endif
