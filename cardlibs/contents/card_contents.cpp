#include "cardlibs/contents/card_contents.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/name.h"

#include <openssl/rand.h>

#include <algorithm>
#include <tuple>

namespace cardlibs::contents {
namespace {

using x509::PublicKey;

Bytes sha1(const Bytes& data)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha1(), nullptr) != 1)
        return {};
    digest.resize(length);
    return digest;
}

bool sameKey(const std::optional<PublicKey>& left, const std::optional<PublicKey>& right)
{
    return left && right && *left == *right;
}

// The subject of a renewal is that of the certificate, or that with the organisation replaced.
bool subjectFits(const Bytes& keySubject, const Bytes& certificateSubject)
{
    return !keySubject.empty() &&
           (keySubject == certificateSubject ||
            keySubject == x509::withReplacedOrganisation(certificateSubject));
}

}  // namespace

Bytes newLink(const x509::Certificate& replaced)
{
    Bytes link(linkSize);
    std::copy_n(replaced.digest().begin(), linkDigestSize, link.begin());
    if (RAND_bytes(link.data() + linkDigestSize, static_cast<int>(linkSize - linkDigestSize)) != 1)
        throw state::CardError(state::fault::internal, "RAND_bytes");
    return link;
}

bool linkNames(const Bytes& id, const x509::Certificate& certificate)
{
    return id.size() == linkSize &&
           std::equal(id.begin(), id.begin() + linkDigestSize, certificate.digest().begin());
}

bool looksLikeLink(const Bytes& id, const PublicKey& key)
{
    if (id.size() != linkSize)
        return false;
    // The usual identifiers of tokens that choose themselves: SHA-1 of modulus, point or
    // coordinate.
    if (key.algorithm == PublicKey::Algorithm::rsa)
        return id != sha1(key.modulus);
    const auto half = static_cast<std::ptrdiff_t>(key.point.size() / 2);
    return id != sha1(key.point) &&
           id != sha1(Bytes(key.point.begin() + 1, key.point.begin() + 1 + half));
}

CardContents::CardContents(CardObjects objects)
    : m_objects(std::move(objects))
{
    collectCertified();
    collectPending();
}

void CardContents::collectCertified()
{
    for (const CertificateObject& object : m_objects.certificates) {
        const auto key = std::find_if(
            m_objects.privateKeys.begin(), m_objects.privateKeys.end(), [&](const KeyObject& k) {
                return sameKey(k.publicKey, object.certificate.publicKey());
            });
        if (key == m_objects.privateKeys.end())
            continue;
        const std::optional<Kind> kind = kindOf(object.certificate, object.label, key->label);
        if (kind)
            m_certified.push_back({&object, &*key, *kind, false});
    }
    for (CertifiedPair& pair : m_certified)
        for (const CertifiedPair& other : m_certified)
            if (&other != &pair && namedByLink(*other.privateKey) == pair.certificate)
                pair.isSuperseded = true;
}

void CardContents::collectPending()
{
    for (const KeyObject& key : m_objects.privateKeys) {
        const std::optional<KeyLabel> label = parseKeyLabel(key.label);
        const bool isCertified =
            std::any_of(m_objects.certificates.begin(), m_objects.certificates.end(),
                        [&](const CertificateObject& object) {
                            return sameKey(key.publicKey, object.certificate.publicKey());
                        });
        if (!label || !key.canSign || !key.publicKey || isCertified)
            continue;
        PendingPair pair{&key, *label, nullptr, false};
        resolveLink(pair);
        m_pending.push_back(pair);
    }
    // Handles differ from session to session, identifiers do not.
    std::sort(m_pending.begin(), m_pending.end(), [](const PendingPair& l, const PendingPair& r) {
        return std::tie(l.label.kind, l.label.number, l.privateKey->id) <
               std::tie(r.label.kind, r.label.number, r.privateKey->id);
    });
}

void CardContents::resolveLink(PendingPair& pair) const
{
    const KeyObject& key = *pair.privateKey;
    if (looksLikeLink(key.id, *key.publicKey)) {
        pair.replaces = namedByLink(key);
        return;
    }
    std::vector<const CertificateObject*> candidates;
    for (const CertifiedPair& certified : m_certified)
        if (certified.kind == pair.label.kind && !certified.isSuperseded &&
            subjectFits(key.subject, certified.certificate->certificate.subject()))
            candidates.push_back(certified.certificate);
    pair.isLinkAmbiguous = candidates.size() > 1;
    if (candidates.size() == 1)
        pair.replaces = candidates.front();
}

bool CardContents::hasPending(Kind kind) const
{
    return std::any_of(m_pending.begin(), m_pending.end(),
                       [&](const PendingPair& pair) { return pair.label.kind == kind; });
}

std::string CardContents::nextLabel(Kind kind) const
{
    for (const PendingPair& pair : m_pending)
        if (pair.label.kind == kind)
            return pair.label.text();
    return lowestFreeLabel(kind, m_objects.labels).text();
}

const PendingPair* CardContents::pendingFor(const CertificateObject& certificate) const
{
    const auto found =
        std::find_if(m_pending.begin(), m_pending.end(),
                     [&](const PendingPair& pair) { return pair.replaces == &certificate; });
    return found == m_pending.end() ? nullptr : &*found;
}

const CertificateObject* CardContents::namedByLink(const KeyObject& key) const
{
    const auto found = std::find_if(
        m_objects.certificates.begin(), m_objects.certificates.end(),
        [&](const CertificateObject& object) { return linkNames(key.id, object.certificate); });
    return found == m_objects.certificates.end() ? nullptr : &*found;
}

}  // namespace cardlibs::contents
