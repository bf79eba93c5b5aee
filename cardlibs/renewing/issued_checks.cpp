#include "cardlibs/renewing/issued_checks.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/name.h"

#include <algorithm>

namespace cardlibs::renewing {
namespace {

using contents::CardContents;
using contents::CertificateObject;
using contents::Kind;
using contents::PendingPair;
using state::CardError;
namespace fault = state::fault;

// Clocks of authorities and of computers may differ by this much.
constexpr std::time_t longestHeadStart = std::time_t{24} * 60 * 60;

// What a token needs for the attributes beside a certificate's value.
constexpr unsigned long certificateOverhead = 512;

const PendingPair* pendingWithKey(const CardContents& contents, const x509::Certificate& issued)
{
    const auto found = std::find_if(
        contents.pending().begin(), contents.pending().end(), [&](const PendingPair& pair) {
            return issued.publicKey() && *pair.privateKey->publicKey == *issued.publicKey();
        });
    return found == contents.pending().end() ? nullptr : &*found;
}

const contents::KeyObject* keyOfStored(const CardContents& contents,
                                       const x509::Certificate& issued)
{
    const contents::CardObjects& objects = contents.objects();
    const bool isStored = std::any_of(
        objects.certificates.begin(), objects.certificates.end(),
        [&](const CertificateObject& o) { return o.certificate.der() == issued.der(); });
    if (!isStored)
        return nullptr;
    const auto key = std::find_if(
        objects.privateKeys.begin(), objects.privateKeys.end(), [&](const contents::KeyObject& k) {
            return k.publicKey && issued.publicKey() && *k.publicKey == *issued.publicKey();
        });
    return key == objects.privateKeys.end() ? nullptr : &*key;
}

// Where the token chose the key's identifier there is no link left to follow; only the certificate
// that the caller names, of the same subject and kind, can be the one.
const CertificateObject* replacedByStoredWithoutLink(const CardContents& contents,
                                                     const Target& target, const Bytes& replacedId)
{
    const contents::CertifiedPair* own = nullptr;
    for (const contents::CertifiedPair& pair : contents.certified())
        if (pair.privateKey == target.privateKey)
            own = &pair;
    if (own == nullptr || replacedId.empty())
        return nullptr;
    for (const contents::CertifiedPair& pair : contents.certified())
        if (&pair != own && pair.kind == own->kind && pair.certificate->id == replacedId &&
            pair.certificate->certificate.subject() == target.privateKey->subject)
            return pair.certificate;
    return nullptr;
}

const CertificateObject* linkedCertificate(const CardContents& contents, const Target& target,
                                           const Bytes& replacedId)
{
    if (target.pending != nullptr) {
        if (target.pending->isLinkAmbiguous)
            throw CardError(fault::linkAmbiguous);
        return target.pending->replaces;
    }
    if (contents::looksLikeLink(target.privateKey->id, *target.privateKey->publicKey))
        return contents.namedByLink(*target.privateKey);
    return replacedByStoredWithoutLink(contents, target, replacedId);
}

void checkKind(const x509::Certificate& issued, const PendingPair& pair,
               const InstallationOrder& order)
{
    const Kind kind = pair.label.kind;
    const bool isRecovery = order.replacedId.empty();
    const bool isSaversKind = (kind == Kind::signature) == (order.saver == Saver::signature);
    if (!isRecovery && !isSaversKind)
        throw CardError(fault::certificateOfOtherKind);
    const std::string label = pair.label.text();
    if (contents::kindOf(issued, label, label) != kind)
        throw CardError(fault::issuedOfOtherKind);
}

void checkHolder(const x509::Certificate& issued, const Bytes& requestSubject)
{
    const std::string requested = x509::firstValue(requestSubject, x509::serialNumberType);
    const std::string received = x509::firstValue(issued.subject(), x509::serialNumberType);
    // Without a number the holder is known by the rest of the name alone.
    const bool isSame = requested.empty() ? x509::sameAttributes(requestSubject, issued.subject(),
                                                                 x509::dnQualifierType)
                                          : requested == received;
    if (!isSame)
        throw CardError(fault::issuedForOtherHolder);
}

void checkValidity(const x509::Certificate& issued, std::time_t now)
{
    if (issued.notAfter() < now)
        throw CardError(fault::issuedExpired);
    if (issued.notBefore() > now + longestHeadStart)
        throw CardError(fault::issuedNotYetValid);
}

void checkSize(const x509::Certificate& issued, const readers::CardPlace& place)
{
    const unsigned long size = issued.der().size();
    const auto& limit = place.entry.limits.certificateBytes;
    const CK_ULONG free = place.info.freePublicMemory;
    if ((limit && size > *limit) ||
        (free != CK_UNAVAILABLE_INFORMATION && free < size + certificateOverhead))
        throw CardError(fault::issuedTooLarge);
}

}  // namespace

Target chooseTarget(const CardContents& contents, const InstallationOrder& order)
{
    for (const x509::Certificate& issued : order.issued) {
        if (const contents::KeyObject* key = keyOfStored(contents, issued))
            return {&issued, key, nullptr, true};
        if (const PendingPair* pair = pendingWithKey(contents, issued))
            return {&issued, pair->privateKey, pair, false};
    }
    throw CardError(fault::issuedForOtherKey);
}

const CertificateObject* replacedBy(const CardContents& contents, const Target& target,
                                    const InstallationOrder& order)
{
    const CertificateObject* linked = linkedCertificate(contents, target, order.replacedId);
    if (linked == nullptr || order.replacedId.empty() || linked->id == order.replacedId)
        return linked;
    // After an interruption the caller may know the new certificate's identifier only.
    if (target.isStored && order.replacedId == target.privateKey->id)
        return linked;
    throw CardError(fault::replacesOther);
}

void checkIssued(const x509::Certificate& issued, const Target& target,
                 const CertificateObject* replaced, const readers::CardPlace& place,
                 const InstallationOrder& order, std::time_t now)
{
    checkKind(issued, *target.pending, order);
    const Bytes& keySubject = target.privateKey->subject;
    if (!keySubject.empty())
        checkHolder(issued, keySubject);
    else if (replaced != nullptr)
        checkHolder(issued, replaced->certificate.subject());
    checkValidity(issued, now);
    checkSize(issued, place);
}

}  // namespace cardlibs::renewing
