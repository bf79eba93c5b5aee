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
        contents.pending().begin(), contents.pending().end(),
        [&](const PendingPair& pair) { return contents::isKeyOf(*pair.privateKey, issued); });
    return found == contents.pending().end() ? nullptr : &*found;
}

bool isOlder(const CertificateObject& object, const Target& target)
{
    return object.certificate.notBefore() < target.issued->notBefore();
}

// What a stored certificate may have replaced, as far as the names tell. Copies follow each other.
std::vector<const CertificateObject*> namesakes(const CardContents& contents, const Target& target)
{
    std::vector<const CertificateObject*> found;
    for (const CertificateObject& object : contents.objects().certificates) {
        const x509::Certificate& certificate = object.certificate;
        const bool isCopy =
            !found.empty() && found.back()->certificate.digest() == certificate.digest();
        if (!isCopy && certificate.digest() != target.issued->digest() &&
            contents.mayBeOfKind(object, target.kind) &&
            contents::subjectFits(target.privateKey->subject, certificate.subject()))
            found.push_back(&object);
    }
    return found;
}

// Where the token chose the key's identifier there is no link left to follow; only the caller can
// say which of the older certificates of the same subject and kind it is.
const CertificateObject* replacedByStoredWithoutLink(const CardContents& contents,
                                                     const Target& target, const Bytes& replacedId)
{
    const bool isNamed = !replacedId.empty() && replacedId != target.privateKey->id;
    const CertificateObject* named = nullptr;
    for (const CertificateObject* object : namesakes(contents, target)) {
        if (!isNamed && isOlder(*object, target) &&
            !object->certificate.keyUsage().allowsDecryption())
            throw CardError::withText(
                fault::linkAmbiguous,
                "Il certificato e' gia' sulla carta, ma non si puo' stabilire quale sostituisce: "
                "scegliere dall'elenco il certificato precedente e ripetere l'installazione. Nulla "
                "e' stato modificato.");
        if (!isNamed || !contents.hasIdentifier(object->certificate, replacedId))
            continue;
        if (!isOlder(*object, target))
            throw CardError(fault::replacesOther);
        if (named != nullptr)
            throw CardError(fault::linkAmbiguous);
        named = object;
    }
    return named;
}

const CertificateObject* replacedByLink(const CardContents& contents, const Target& target,
                                        bool hasLink)
{
    if (hasLink)
        return contents.namedByLink(target.privateKey->id, target.kind);
    if (target.pending->isLinkAmbiguous)
        throw CardError(fault::linkAmbiguous);
    const CertificateObject* meant = target.pending->replaces;
    return meant != nullptr && isOlder(*meant, target) ? meant : nullptr;
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
    Target target;
    for (const x509::Certificate& issued : order.issued) {
        const PendingPair* pair = pendingWithKey(contents, issued);
        if (pair == nullptr ||
            (target.issued != nullptr && target.issued->digest() == issued.digest()))
            continue;
        if (target.issued != nullptr)
            throw CardError(fault::issuedSeveral);
        target = {&issued, pair->privateKey, pair->label.kind, pair};
    }
    if (target.issued != nullptr)
        return target;
    bool isSuperseded = false;
    for (const x509::Certificate& issued : order.issued) {
        const contents::CertifiedPair* pair = contents.certifiedPair(issued);
        // What waits to be replaced itself is not what was sent for.
        if (pair == nullptr || contents.pendingFor(issued) != nullptr)
            continue;
        // The old one may come in one file with the new one.
        if (target.issued == nullptr || (isSuperseded && !pair->isSuperseded)) {
            target = {&issued, pair->privateKey, pair->kind, nullptr};
            isSuperseded = pair->isSuperseded;
        }
    }
    if (target.issued == nullptr)
        throw CardError(fault::issuedForOtherKey);
    return target;
}

const CertificateObject* replacedBy(const CardContents& contents, const Target& target,
                                    const InstallationOrder& order)
{
    const contents::KeyObject& key = *target.privateKey;
    const bool hasLink = contents::looksLikeLink(key.id, *key.publicKey);
    if (target.pending == nullptr && !hasLink)
        return replacedByStoredWithoutLink(contents, target, order.replacedId);
    const CertificateObject* replaced = replacedByLink(contents, target, hasLink);
    if (replaced == nullptr || order.replacedId.empty() ||
        contents.hasIdentifier(replaced->certificate, order.replacedId))
        return replaced;
    // After an interruption the caller may know the new certificate's identifier only.
    if (target.pending == nullptr && order.replacedId == key.id)
        return replaced;
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
