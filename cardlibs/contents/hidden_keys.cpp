#include "cardlibs/contents/hidden_keys.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/signing.h"

#include <algorithm>

namespace cardlibs::contents {
namespace {

using x509::PublicKey;

struct Candidate {
    PublicKey key;
    bool hasKeyObject = false;
};

// Public keys on the card, each once, for which the condition on key and CKA_ID holds.
template <typename Condition>
std::vector<Candidate> candidatesWhere(const CardObjects& objects, Condition&& holds)
{
    std::vector<Candidate> candidates;
    const auto consider = [&](const Bytes& id, const std::optional<PublicKey>& key,
                              bool hasKeyObject) {
        if (!key || !holds(*key, id))
            return;
        const bool isKnown = std::any_of(candidates.begin(), candidates.end(),
                                         [&](const Candidate& c) { return c.key == *key; });
        if (!isKnown)
            candidates.push_back({*key, hasKeyObject});
    };
    for (const KeyObject& publicKey : objects.publicKeys)
        consider(publicKey.id, publicKey.publicKey, true);
    for (const CertificateObject& object : objects.certificates)
        consider(object.id, object.certificate.publicKey(), false);
    return candidates;
}

enum class Verdict { proven, refuted, notTried };

struct Trial {
    Verdict verdict = Verdict::notTried;
    std::optional<PublicKey> proven;
};

bool tellsThatTheCardIsGone(unsigned long number)
{
    return number == CKR_DEVICE_REMOVED || number == CKR_TOKEN_NOT_PRESENT ||
           number == CKR_SESSION_HANDLE_INVALID || number == CKR_SESSION_CLOSED ||
           number == CKR_CRYPTOKI_NOT_INITIALIZED;
}

Trial trialSignature(token::Session& session, const KeyObject& key,
                     const std::vector<Candidate>& candidates)
{
    if (!key.canSign || key.wantsPinEachTime)
        return {};
    const bool isRsa = key.keyType == CK_KEY_TYPE(CKK_RSA);
    const Bytes& trial = key.id;
    constexpr auto hash = x509::Hash::sha256;
    try {
        const Bytes raw =
            isRsa ? session.sign(key.handle, CKM_RSA_PKCS, x509::digestInfo(hash, trial), nullptr)
                  : session.sign(key.handle, CKM_ECDSA, x509::digestOf(hash, trial), nullptr);
        const Bytes signature = isRsa ? raw : x509::derEcSignature(raw);
        for (const Candidate& candidate : candidates)
            if (x509::verifies(candidate.key, hash, trial, signature))
                return {Verdict::proven, candidate.key};
        return {Verdict::refuted, std::nullopt};
    } catch (const state::CardError& error) {
        // Any other failure is the key's own: what it belongs to is not known then.
        if (tellsThatTheCardIsGone(error.number()))
            throw;
        return {};
    }
}

void settle(KeyObject& key, const PublicKey& publicKey, Certainty certainty)
{
    key.publicKey = publicKey;
    key.certainty = certainty;
}

void complete(token::Session& session, KeyObject& key, const CardObjects& objects)
{
    if (!key.modulus.empty()) {
        // The modulus says as much as the whole key, whatever the identifiers.
        const auto byModulus =
            candidatesWhere(objects, [&](const PublicKey& candidate, const Bytes&) {
                return couldBelong(key, candidate);
            });
        if (byModulus.size() == 1)
            settle(key, byModulus.front().key, Certainty::certain);
        if (byModulus.size() <= 1)
            return;
    }
    if (key.id.empty())
        return;
    const auto candidates =
        candidatesWhere(objects, [&](const PublicKey& candidate, const Bytes& id) {
            return id == key.id && couldBelong(key, candidate);
        });
    if (candidates.empty())
        return;
    const bool isAlone =
        std::none_of(objects.privateKeys.begin(), objects.privateKeys.end(),
                     [&](const KeyObject& other) { return &other != &key && other.id == key.id; });
    const bool isOnlyChoice = isAlone && candidates.size() == 1;
    if (isOnlyChoice && candidates.front().hasKeyObject) {
        settle(key, candidates.front().key, Certainty::byIdentifier);
        return;
    }
    const Trial trial = trialSignature(session, key, candidates);
    if (trial.proven)
        settle(key, *trial.proven, Certainty::certain);
    else if (trial.verdict == Verdict::notTried && isOnlyChoice)
        settle(key, candidates.front().key, Certainty::byIdentifier);
    else if (trial.verdict == Verdict::notTried)
        key.certainty = Certainty::undecided;
}

}  // namespace

bool couldBelong(const KeyObject& key, const PublicKey& candidate)
{
    if (candidate.algorithm == PublicKey::Algorithm::rsa) {
        const auto modulus = x509::rsaPublicKey(key.modulus, {1});
        return key.keyType == CK_KEY_TYPE(CKK_RSA) &&
               (!modulus || modulus->modulus == candidate.modulus);
    }
    return key.keyType == CK_KEY_TYPE(CKK_EC) &&
           (key.ecParameters.empty() || x509::curveOf(key.ecParameters) == candidate.curve);
}

void completeHiddenKeys(token::Session& session, CardObjects& objects)
{
    for (KeyObject& key : objects.privateKeys)
        if (!key.publicKey)
            complete(session, key, objects);
}

}  // namespace cardlibs::contents
