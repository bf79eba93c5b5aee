#include "cardlibs/renewing/key_signer.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/signing.h"

#include <openssl/rand.h>

#include <algorithm>

namespace cardlibs::renewing {
namespace {

using state::CardError;
using x509::Hash;
using x509::PublicKey;

CK_MECHANISM_TYPE hashingMechanism(const PublicKey& key)
{
    const bool isSha384 = x509::hashFor(key) == Hash::sha384;
    if (key.algorithm == PublicKey::Algorithm::rsa)
        return isSha384 ? CKM_SHA384_RSA_PKCS : CKM_SHA256_RSA_PKCS;
    return isSha384 ? CKM_ECDSA_SHA384 : CKM_ECDSA_SHA256;
}

CK_MECHANISM_TYPE rawMechanism(const PublicKey& key)
{
    return key.algorithm == PublicKey::Algorithm::rsa ? CKM_RSA_PKCS : CKM_ECDSA;
}

std::vector<CK_MECHANISM_TYPE> usableMechanisms(const PublicKey& key,
                                                const std::vector<CK_MECHANISM_TYPE>& mechanisms)
{
    std::vector<CK_MECHANISM_TYPE> usable;
    for (const CK_MECHANISM_TYPE mechanism : {hashingMechanism(key), rawMechanism(key)})
        if (std::find(mechanisms.begin(), mechanisms.end(), mechanism) != mechanisms.end())
            usable.push_back(mechanism);
    if (usable.empty())
        throw CardError(CKR_MECHANISM_INVALID);
    return usable;
}

}  // namespace

bool refusesMechanism(unsigned long number)
{
    switch (number) {
    case CKR_DATA_INVALID:
    case CKR_DATA_LEN_RANGE:
    case CKR_FUNCTION_NOT_SUPPORTED:
    case CKR_KEY_FUNCTION_NOT_PERMITTED:
    case CKR_KEY_TYPE_INCONSISTENT:
    case CKR_MECHANISM_INVALID:
    case CKR_MECHANISM_PARAM_INVALID:
        return true;
    default:
        return false;
    }
}

KeySigner::KeySigner(token::Session& session, SigningKey key,
                     const std::vector<CK_MECHANISM_TYPE>& mechanisms, const char* pin)
    : m_session(session)
    , m_key(std::move(key))
    , m_usable(usableMechanisms(m_key.publicKey, mechanisms))
    , m_pin(pin)
{
}

void KeySigner::requireMechanism(const PublicKey& key,
                                 const std::vector<CK_MECHANISM_TYPE>& mechanisms)
{
    usableMechanisms(key, mechanisms);
}

Bytes KeySigner::sign(const Bytes& data)
{
    for (std::size_t i = 0; i + 1 < m_usable.size(); ++i) {
        try {
            return signWith(m_usable[i], data);
        } catch (const CardError& error) {
            if (!refusesMechanism(error.number()))
                throw;
        }
    }
    return signWith(m_usable.back(), data);
}

Bytes KeySigner::signWith(CK_MECHANISM_TYPE mechanism, const Bytes& data)
{
    const PublicKey& key = m_key.publicKey;
    const bool isRsa = key.algorithm == PublicKey::Algorithm::rsa;
    const Hash hash = x509::hashFor(key);
    Bytes input = data;
    if (mechanism == rawMechanism(key))
        input = isRsa ? x509::digestInfo(hash, data) : x509::digestOf(hash, data);
    const char* contextPin = m_key.wantsPinEachTime ? m_pin : nullptr;
    const Bytes signature = m_session.sign(m_key.handle, mechanism, input, contextPin);
    return isRsa ? signature : x509::derEcSignature(signature);
}

void KeySigner::prove()
{
    Bytes trial(32);
    if (RAND_bytes(trial.data(), static_cast<int>(trial.size())) != 1)
        throw CardError(state::fault::internal, "RAND_bytes");
    if (!x509::verifies(m_key.publicKey, x509::hashFor(m_key.publicKey), trial, sign(trial)))
        throw CardError(state::fault::keyDoesNotSign);
}

}  // namespace cardlibs::renewing
