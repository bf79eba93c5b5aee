#include "cardlibs/contents/card_contents.h"

#include "cardlibs/contents/hidden_keys.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace cardlibs::contents {
namespace {

bool sameCertificate(const x509::Certificate& left, const x509::Certificate& right)
{
    return left.digest() == right.digest();
}

const KeyObject* keyOf(const CardObjects& objects, const x509::Certificate& certificate)
{
    const auto key = std::find_if(objects.privateKeys.begin(), objects.privateKeys.end(),
                                  [&](const KeyObject& k) { return isKeyOf(k, certificate); });
    return key == objects.privateKeys.end() ? nullptr : &*key;
}

}  // namespace

CardContents::CardContents(CardObjects objects)
    : m_objects(std::move(objects))
{
    sortCertificates();
    collectCertified();
    markSuperseded();
    collectPending();
}

// The token gives its objects in an order of its own, which changes; of the copies of a certificate
// it must always be the same one that stands for it.
void CardContents::sortCertificates()
{
    const auto rank = [&](const CertificateObject& object) {
        const KeyObject* key = keyOf(m_objects, object.certificate);
        const bool hasIdOfKey = key != nullptr && key->id == object.id;
        return std::make_tuple(object.certificate.digest(), !hasIdOfKey, object.id, object.label);
    };
    std::sort(m_objects.certificates.begin(), m_objects.certificates.end(),
              [&](const auto& left, const auto& right) { return rank(left) < rank(right); });
}

void CardContents::collectCertified()
{
    for (const CertificateObject& object : m_objects.certificates) {
        const KeyObject* key = keyOf(m_objects, object.certificate);
        if (key == nullptr || certifiedPair(object.certificate) != nullptr)
            continue;
        const std::optional<Kind> kind = kindOf(object.certificate, object.label, key->label);
        if (kind)
            m_certified.push_back({&object, key, *kind, false});
    }
}

void CardContents::markSuperseded()
{
    std::set<Bytes> superseded;
    for (const CertifiedPair& pair : m_certified) {
        // A replaced certificate may be kept for the sake of its own link to an older one.
        const CertificateObject* older = namedByLink(pair.privateKey->id, pair.kind);
        while (older != nullptr &&
               !sameCertificate(older->certificate, pair.certificate->certificate) &&
               superseded.insert(older->certificate.digest()).second)
            older = namedByLink(older->id, pair.kind);
    }
    for (CertifiedPair& pair : m_certified)
        pair.isSuperseded = superseded.count(pair.certificate->certificate.digest()) != 0;
}

bool CardContents::isInUse(const KeyObject& key) const
{
    const bool isCertified = std::any_of(
        m_objects.certificates.begin(), m_objects.certificates.end(),
        [&](const CertificateObject& object) { return isKeyOf(key, object.certificate); });
    // A certificate that cannot be read may be the key's. One of the same holder is not when the
    // key says that it is to replace another.
    const bool isLinked = looksLikeLink(key.id, *key.publicKey);
    return isCertified || std::any_of(m_objects.unreadableCertificates.begin(),
                                      m_objects.unreadableCertificates.end(),
                                      [&](const UnreadableCertificate& unreadable) {
                                          return sharesIdentifier(key, unreadable) ||
                                                 (!isLinked && sharesSubject(key, unreadable));
                                      });
}

void CardContents::collectPending()
{
    for (const KeyObject& key : m_objects.privateKeys) {
        const std::optional<KeyLabel> label = parseKeyLabel(key.label);
        if (!label || !key.canSign || !key.publicKey || isInUse(key))
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
        pair.replaces = namedByLink(key.id, pair.label.kind);
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

const CertifiedPair* CardContents::certifiedPair(const x509::Certificate& certificate) const
{
    const auto found =
        std::find_if(m_certified.begin(), m_certified.end(), [&](const CertifiedPair& pair) {
            return sameCertificate(pair.certificate->certificate, certificate);
        });
    return found == m_certified.end() ? nullptr : &*found;
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

const PendingPair* CardContents::pendingFor(const x509::Certificate& certificate) const
{
    const auto found = std::find_if(m_pending.begin(), m_pending.end(), [&](const PendingPair& p) {
        return p.replaces != nullptr && sameCertificate(p.replaces->certificate, certificate);
    });
    return found == m_pending.end() ? nullptr : &*found;
}

const CertificateObject* CardContents::namedByLink(const Bytes& id, Kind kind) const
{
    const auto found =
        std::find_if(m_objects.certificates.begin(), m_objects.certificates.end(),
                     [&](const CertificateObject& object) {
                         return linkNames(id, object.certificate) && mayBeOfKind(object, kind);
                     });
    return found == m_objects.certificates.end() ? nullptr : &*found;
}

bool CardContents::mayBeOfKind(const CertificateObject& object, Kind kind) const
{
    if (const CertifiedPair* pair = certifiedPair(object.certificate))
        return pair->kind == kind;
    // As if its key had borne a label of that kind.
    return kindOf(object.certificate, object.label, KeyLabel{kind, 0}.text()) == kind;
}

bool CardContents::hasIdentifier(const x509::Certificate& certificate, const Bytes& id) const
{
    return std::any_of(m_objects.certificates.begin(), m_objects.certificates.end(),
                       [&](const CertificateObject& object) {
                           return object.id == id &&
                                  sameCertificate(object.certificate, certificate);
                       });
}

std::vector<const CertificateObject*> CardContents::undecided() const
{
    std::vector<const CertificateObject*> found;
    for (const CertificateObject& object : m_objects.certificates) {
        const std::optional<x509::PublicKey>& candidate = object.certificate.publicKey();
        const bool isKnown =
            keyOf(m_objects, object.certificate) != nullptr ||
            (!found.empty() && sameCertificate(found.back()->certificate, object.certificate));
        const auto mayBeItsKey = [&](const KeyObject& key) {
            return key.certainty == Certainty::undecided && key.id == object.id && candidate &&
                   couldBelong(key, *candidate);
        };
        if (!isKnown &&
            std::any_of(m_objects.privateKeys.begin(), m_objects.privateKeys.end(), mayBeItsKey))
            found.push_back(&object);
    }
    return found;
}

}  // namespace cardlibs::contents
