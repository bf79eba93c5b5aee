#include "cardlibs/renewing/removal.h"

#include "cardlibs/renewing/key_signer.h"
#include "cardlibs/state/card_error.h"

#include <algorithm>
#include <set>

namespace cardlibs::renewing {
namespace {

using contents::CardContents;
using contents::CardObjects;
using contents::CertificateObject;
using contents::KeyObject;
using state::CardError;

class Removal {
public:
    Removal(token::Session& session, const CardContents& contents, contents::Kind kind,
            const KeyProof& prove)
        : m_session(session)
        , m_contents(contents)
        , m_objects(contents.objects())
        , m_kind(kind)
        , m_prove(prove)
    {
    }

    // False when the certificate stays.
    bool remove(const CertificateObject& object)
    {
        const x509::Certificate& certificate = object.certificate;
        // Links that run in a circle are nobody's renewals.
        if (!m_seen.insert(certificate.digest()).second ||
            certificate.keyUsage().allowsDecryption() || !isProven(certificate))
            return false;
        const CertificateObject* older = m_contents.namedByLink(linkOf(object), m_kind);
        const bool isLast = older == nullptr || remove(*older);
        destroyKeys(m_objects.privateKeys, certificate);
        destroyKeys(m_objects.publicKeys, certificate);
        if (!isLast)
            return false;
        for (const CertificateObject& copy : m_objects.certificates)
            if (copy.certificate.digest() == certificate.digest())
                destroy(copy.handle);
        return true;
    }

private:
    const Bytes& linkOf(const CertificateObject& object) const
    {
        const contents::CertifiedPair* pair = m_contents.certifiedPair(object.certificate);
        return pair == nullptr ? object.id : pair->privateKey->id;
    }

    bool isUsedByAnother(const KeyObject& key, const x509::Certificate& certificate) const
    {
        const auto uses = [&](const CertificateObject& other) {
            return other.certificate.digest() != certificate.digest() &&
                   isKeyOf(key, other.certificate);
        };
        const auto mayUse = [&](const contents::UnreadableCertificate& unreadable) {
            return sharesIdentifier(key, unreadable) || sharesSubject(key, unreadable);
        };
        return std::any_of(m_objects.certificates.begin(), m_objects.certificates.end(), uses) ||
               std::any_of(m_objects.unreadableCertificates.begin(),
                           m_objects.unreadableCertificates.end(), mayUse);
    }

    bool isProven(const x509::Certificate& certificate) const
    {
        return std::all_of(
            m_objects.privateKeys.begin(), m_objects.privateKeys.end(),
            [&](const KeyObject& key) { return !isKeyOf(key, certificate) || isProven(key); });
    }

    bool isProven(const KeyObject& key) const
    {
        if (key.certainty == contents::Certainty::certain)
            return true;
        if (!key.canSign)
            return false;
        try {
            m_prove(key);
            return true;
        } catch (const CardError& error) {
            if (error.number() == state::fault::keyDoesNotSign || refusesMechanism(error.number()))
                return false;
            throw;
        }
    }

    void destroyKeys(const std::vector<KeyObject>& keys, const x509::Certificate& certificate)
    {
        for (const KeyObject& key : keys)
            if (isKeyOf(key, certificate) && !isUsedByAnother(key, certificate))
                destroy(key.handle);
    }

    // Cards drop a public key or a certificate together with its private key.
    void destroy(CK_OBJECT_HANDLE handle)
    {
        try {
            m_session.destroy(handle);
        } catch (const CardError& error) {
            if (error.number() != CKR_OBJECT_HANDLE_INVALID)
                throw;
        }
    }

    token::Session& m_session;
    const CardContents& m_contents;
    const CardObjects& m_objects;
    contents::Kind m_kind;
    const KeyProof& m_prove;
    std::set<Bytes> m_seen;
};

}  // namespace

void removeReplaced(token::Session& session, const CardContents& contents,
                    const CertificateObject& replaced, contents::Kind kind, const KeyProof& prove)
{
    try {
        Removal(session, contents, kind, prove).remove(replaced);
    } catch (const CardError& error) {
        throw CardError::withText(
            error.number(),
            "Il nuovo certificato e' installato e utilizzabile, ma il precedente non e' stato "
            "tolto "
            "del tutto: ripetere l'installazione dello stesso certificato per completarla.");
    }
}

}  // namespace cardlibs::renewing
