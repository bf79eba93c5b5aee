#include "cardlibs/renewing/request_making.h"

#include "cardlibs/renewing/key_making.h"
#include "cardlibs/renewing/key_signer.h"
#include "cardlibs/state/card_error.h"
#include "cardlibs/x509/name.h"
#include "cardlibs/x509/request.h"

#include <algorithm>

namespace cardlibs::renewing {
namespace {

using contents::CardContents;
using contents::CertifiedPair;
using contents::PendingPair;
using state::CardError;
namespace fault = state::fault;

// The subject that the text stands for.
Bytes subjectFor(const x509::Certificate& certificate, const std::string& text)
{
    const std::string own = x509::nameText(certificate.subject());
    if (text == own)
        return certificate.subject();
    if (text == x509::withReplacedOrganisation(own))
        if (const auto replaced = x509::withReplacedOrganisation(certificate.subject()))
            return *replaced;
    throw CardError(fault::subjectDiffers);
}

bool namesSubject(const CertifiedPair& pair, const std::string& text)
{
    const std::string own = x509::nameText(pair.certificate->certificate.subject());
    return text == own || text == x509::withReplacedOrganisation(own);
}

const CertifiedPair& certificateToRenew(const CardContents& contents, const RequestOrder& order)
{
    std::vector<const CertifiedPair*> found;
    bool otherKind = false;
    for (const CertifiedPair& pair : contents.certified()) {
        if (pair.isSuperseded ||
            !contents.hasIdentifier(pair.certificate->certificate, order.certificateId))
            continue;
        if (pair.kind == order.label.kind)
            found.push_back(&pair);
        else
            otherKind = true;
    }
    // Other programs give several certificates one identifier; the subject may still tell them
    // apart.
    if (found.size() > 1)
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&](const CertifiedPair* pair) {
                                       return !namesSubject(*pair, order.subjectText);
                                   }),
                    found.end());
    if (found.size() > 1)
        throw CardError(fault::certificateAmbiguous);
    if (found.empty())
        throw CardError(otherKind ? fault::certificateOfOtherKind : fault::certificateNotOnCard);
    return *found.front();
}

const PendingPair* reusablePair(const CardContents& contents, const CertifiedPair& renewed,
                                const KeySpec& spec, const Bytes& subject)
{
    for (const PendingPair& pair : contents.pending())
        if (pair.replaces == renewed.certificate && isFit(pair, spec, renewed.kind, subject))
            return &pair;
    return nullptr;
}

contents::KeyLabel labelForNewPair(const CardContents& contents, const contents::KeyLabel& wanted)
{
    const std::multiset<std::string>& labels = contents.objects().labels;
    if (wanted.kind == contents::Kind::cns || labels.count(wanted.text()) == 0)
        return wanted;
    return contents::lowestFreeLabel(wanted.kind, labels);
}

// An upper bound for the request's PEM, so that no key is made in vain.
std::size_t longestFor(const KeySpec& spec, const Bytes& subject)
{
    // Key and signature take about the key's length each, an EC signature twice that; the rest is
    // the usages, algorithms and headers.
    constexpr std::size_t rest = 512;
    const std::size_t der = subject.size() + 4 * (spec.bits / 8) + rest;
    // Base64 in lines of 64, between two marks.
    return der / 3 * 4 + der / 48 + 80;
}

struct KeyForRequest {
    SigningKey key;
    std::optional<contents::KeyLabel> newPair;
};

KeyForRequest keyForRequest(token::Session& session, const readers::CardPlace& place,
                            const CardContents& contents, const CertifiedPair& renewed,
                            const RequestOrder& order, const Bytes& subject,
                            const std::vector<CK_MECHANISM_TYPE>& mechanisms)
{
    const x509::Certificate& certificate = renewed.certificate->certificate;
    const KeySpec spec = keySpecFor(certificate);
    if (const PendingPair* pair = reusablePair(contents, renewed, spec, subject)) {
        const contents::KeyObject& key = *pair->privateKey;
        return {{key.handle, *key.publicKey, key.wantsPinEachTime}, std::nullopt};
    }
    // The new key signs like the old one; without a mechanism for that it would be of no use.
    KeySigner::requireMechanism(*certificate.publicKey(), mechanisms);
    checkRoomFor(spec, certificate, place, mechanisms);
    if (longestFor(spec, subject) > longestRequest)
        throw CardError(fault::requestTooLong);
    const contents::KeyLabel label = labelForNewPair(contents, order.label);
    NewKey wanted;
    wanted.label = label.text();
    wanted.id = contents::newLink(certificate);
    wanted.subject = subject;
    wanted.isForDecryption = certificate.keyUsage().allowsDecryption();
    return {makeKey(session, spec, wanted), label};
}

}  // namespace

MadeRequest makeRequest(token::Session& session, const readers::CardPlace& place,
                        const CardContents& contents, const RequestOrder& order, const char* pin)
{
    const CertifiedPair& renewed = certificateToRenew(contents, order);
    const x509::Certificate& certificate = renewed.certificate->certificate;
    const Bytes subject = subjectFor(certificate, order.subjectText);
    const std::vector<CK_MECHANISM_TYPE> mechanisms = place.module->mechanisms(place.slot);
    const KeyForRequest use =
        keyForRequest(session, place, contents, renewed, order, subject, mechanisms);
    KeySigner signer(session, use.key, mechanisms, pin);
    MadeRequest made;
    made.newPair = use.newPair;
    made.pem = x509::buildRequest(subject, use.key.publicKey, certificate,
                                  [&](const Bytes& toSign) { return signer.sign(toSign); });
    if (made.pem.empty())
        throw CardError(fault::requestNotValid);
    if (made.pem.size() > longestRequest)
        throw CardError(fault::requestTooLong);
    return made;
}

}  // namespace cardlibs::renewing
