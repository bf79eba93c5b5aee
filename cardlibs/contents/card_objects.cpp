#include "cardlibs/contents/card_objects.h"

#include "cardlibs/contents/hidden_keys.h"

#include <algorithm>

namespace cardlibs::contents {
namespace {

const std::vector<CK_ATTRIBUTE_TYPE>& certificateAttributes()
{
    static const std::vector<CK_ATTRIBUTE_TYPE> types = {CKA_LABEL, CKA_ID, CKA_VALUE, CKA_SUBJECT};
    return types;
}

// One list for keys of every kind and for other objects, so that one call each is enough; CKA_VALUE
// is not among them, because a private key might give it away.
const std::vector<CK_ATTRIBUTE_TYPE>& objectAttributes()
{
    static const std::vector<CK_ATTRIBUTE_TYPE> types = {
        CKA_CLASS,   CKA_LABEL,           CKA_ID,        CKA_KEY_TYPE, CKA_SUBJECT,
        CKA_SIGN,    CKA_EXTRACTABLE,     CKA_SENSITIVE, CKA_LOCAL,    CKA_ALWAYS_AUTHENTICATE,
        CKA_MODULUS, CKA_PUBLIC_EXPONENT, CKA_EC_PARAMS, CKA_EC_POINT};
    return types;
}

void addCertificate(CardObjects& objects, CK_OBJECT_HANDLE handle,
                    const token::Attributes& attributes)
{
    objects.labels.insert(attributes.text(CKA_LABEL));
    std::optional<x509::Certificate> certificate =
        x509::Certificate::parseStored(attributes.bytes(CKA_VALUE));
    if (certificate)
        objects.certificates.push_back({handle, attributes.text(CKA_LABEL),
                                        attributes.bytes(CKA_ID), std::move(*certificate)});
    else
        objects.unreadableCertificates.push_back(
            {attributes.bytes(CKA_ID), attributes.bytes(CKA_SUBJECT)});
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
    key.isSensitive = attributes.flag(CKA_SENSITIVE).value_or(false);
    key.isLocal = attributes.flag(CKA_LOCAL).value_or(false);
    key.wantsPinEachTime = attributes.flag(CKA_ALWAYS_AUTHENTICATE).value_or(false);
    key.keyType = attributes.number(CKA_KEY_TYPE);
    key.modulus = attributes.bytes(CKA_MODULUS);
    key.ecParameters = attributes.bytes(CKA_EC_PARAMS);
    if (key.keyType == CK_KEY_TYPE(CKK_RSA))
        key.publicKey = x509::rsaPublicKey(key.modulus, attributes.bytes(CKA_PUBLIC_EXPONENT));
    else if (key.keyType == CK_KEY_TYPE(CKK_EC))
        key.publicKey = x509::ecPublicKey(key.ecParameters, attributes.bytes(CKA_EC_POINT));
    if (key.publicKey)
        key.certainty = Certainty::certain;
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
    completeHiddenKeys(session, objects);
    return objects;
}

bool isKeyOf(const KeyObject& key, const x509::Certificate& certificate)
{
    return key.publicKey && certificate.publicKey() && *key.publicKey == *certificate.publicKey();
}

bool sharesIdentifier(const KeyObject& key, const UnreadableCertificate& certificate)
{
    return !key.id.empty() && key.id == certificate.id;
}

bool sharesSubject(const KeyObject& key, const UnreadableCertificate& certificate)
{
    return !key.subject.empty() && key.subject == certificate.subject;
}

}  // namespace cardlibs::contents
