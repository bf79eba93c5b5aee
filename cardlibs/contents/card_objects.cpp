#include "cardlibs/contents/card_objects.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/signing.h"

#include <algorithm>

namespace cardlibs::contents {
namespace {

using x509::PublicKey;

const std::vector<CK_ATTRIBUTE_TYPE>& certificateAttributes()
{
    static const std::vector<CK_ATTRIBUTE_TYPE> types = {CKA_LABEL, CKA_ID, CKA_VALUE};
    return types;
}

// One list for keys of every kind and for other objects, so that one call each is enough; CKA_VALUE
// is not among them, because a private key might give it away.
const std::vector<CK_ATTRIBUTE_TYPE>& objectAttributes()
{
    static const std::vector<CK_ATTRIBUTE_TYPE> types = {
        CKA_CLASS,           CKA_LABEL,     CKA_ID,          CKA_KEY_TYPE,
        CKA_SUBJECT,         CKA_SIGN,      CKA_EXTRACTABLE, CKA_MODULUS,
        CKA_PUBLIC_EXPONENT, CKA_EC_PARAMS, CKA_EC_POINT,    CKA_ALWAYS_AUTHENTICATE};
    return types;
}

void addCertificate(CardObjects& objects, CK_OBJECT_HANDLE handle,
                    const token::Attributes& attributes)
{
    objects.labels.insert(attributes.text(CKA_LABEL));
    std::optional<x509::Certificate> certificate =
        x509::Certificate::parse(attributes.bytes(CKA_VALUE));
    if (certificate)
        objects.certificates.push_back({handle, attributes.text(CKA_LABEL),
                                        attributes.bytes(CKA_ID), std::move(*certificate)});
}

KeyObject keyFrom(CK_OBJECT_HANDLE handle, const token::Attributes& attributes)
{
    KeyObject key;
    key.handle = handle;
    key.label = attributes.text(CKA_LABEL);
    key.id = attributes.bytes(CKA_ID);
    key.subject = attributes.bytes(CKA_SUBJECT);
    key.canSign = attributes.flag(CKA_SIGN).value_or(false);
    key.isExtractable = attributes.flag(CKA_EXTRACTABLE).value_or(false);
    key.wantsPinEachTime = attributes.flag(CKA_ALWAYS_AUTHENTICATE).value_or(false);
    key.keyType = attributes.number(CKA_KEY_TYPE);
    key.modulus = attributes.bytes(CKA_MODULUS);
    key.ecParameters = attributes.bytes(CKA_EC_PARAMS);
    if (key.keyType == CK_KEY_TYPE(CKK_RSA))
        key.publicKey = x509::rsaPublicKey(key.modulus, attributes.bytes(CKA_PUBLIC_EXPONENT));
    else if (key.keyType == CK_KEY_TYPE(CKK_EC))
        key.publicKey = x509::ecPublicKey(key.ecParameters, attributes.bytes(CKA_EC_POINT));
    return key;
}

void addObject(CardObjects& objects, CK_OBJECT_HANDLE handle, const token::Attributes& attributes)
{
    objects.labels.insert(attributes.text(CKA_LABEL));
    const std::optional<CK_ULONG> objectClass = attributes.number(CKA_CLASS);
    if (objectClass == CK_ULONG(CKO_PRIVATE_KEY))
        objects.privateKeys.push_back(keyFrom(handle, attributes));
    else if (objectClass == CK_ULONG(CKO_PUBLIC_KEY))
        objects.publicKeys.push_back(keyFrom(handle, attributes));
}

// False when what the private key does tell rules the public key out.
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

std::vector<PublicKey> candidatesFor(const KeyObject& key, const CardObjects& objects)
{
    std::vector<PublicKey> candidates;
    const auto consider = [&](const Bytes& id, const std::optional<PublicKey>& candidate) {
        if (!candidate || id != key.id || !couldBelong(key, *candidate))
            return;
        if (std::find(candidates.begin(), candidates.end(), *candidate) == candidates.end())
            candidates.push_back(*candidate);
    };
    for (const KeyObject& publicKey : objects.publicKeys)
        consider(publicKey.id, publicKey.publicKey);
    for (const CertificateObject& object : objects.certificates)
        consider(object.id, object.certificate.publicKey());
    return candidates;
}

// The candidate that a signature of the key verifies with, if it can sign without more ado.
std::optional<PublicKey> provenBySigning(token::Session& session, const KeyObject& key,
                                         const std::vector<PublicKey>& candidates)
{
    if (!key.canSign || key.wantsPinEachTime || candidates.empty())
        return std::nullopt;
    const bool isRsa = candidates.front().algorithm == PublicKey::Algorithm::rsa;
    const Bytes trial(key.id);
    constexpr auto hash = x509::Hash::sha256;
    try {
        const Bytes raw =
            isRsa ? session.sign(key.handle, CKM_RSA_PKCS, x509::digestInfo(hash, trial), nullptr)
                  : session.sign(key.handle, CKM_ECDSA, x509::digestOf(hash, trial), nullptr);
        const Bytes signature = isRsa ? raw : x509::derEcSignature(raw);
        for (const PublicKey& candidate : candidates)
            if (x509::verifies(candidate, hash, trial, signature))
                return candidate;
    } catch (const state::CardError&) {
        // A key that does not sign stays one whose public part is unknown: nobody touches it.
        return std::nullopt;
    }
    return std::nullopt;
}

void completePrivateKeys(token::Session& session, CardObjects& objects)
{
    for (KeyObject& key : objects.privateKeys) {
        if (key.publicKey || key.id.empty())
            continue;
        const std::vector<PublicKey> candidates = candidatesFor(key, objects);
        const auto sharesId = [&](const KeyObject& other) {
            return &other != &key && other.id == key.id;
        };
        const bool isAlone =
            std::none_of(objects.privateKeys.begin(), objects.privateKeys.end(), sharesId);
        if (candidates.size() == 1 && isAlone)
            key.publicKey = candidates.front();
        else
            key.publicKey = provenBySigning(session, key, candidates);
    }
}

}  // namespace

CardObjects readObjects(token::Session& session)
{
    CardObjects objects;
    token::Template certificateClass;
    certificateClass.number(CKA_CLASS, CKO_CERTIFICATE);
    const std::vector<CK_OBJECT_HANDLE> certificates = session.find(certificateClass);
    for (const CK_OBJECT_HANDLE handle : certificates)
        addCertificate(objects, handle, session.read(handle, certificateAttributes()));
    token::Template anything;
    for (const CK_OBJECT_HANDLE handle : session.find(anything))
        if (std::find(certificates.begin(), certificates.end(), handle) == certificates.end())
            addObject(objects, handle, session.read(handle, objectAttributes()));
    completePrivateKeys(session, objects);
    return objects;
}

}  // namespace cardlibs::contents
