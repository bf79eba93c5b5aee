#include "cardlibs/renewing/key_making.h"

#include "cardlibs/state/card_error.h"

#include <algorithm>

namespace cardlibs::renewing {
namespace {

using state::CardError;
using x509::PublicKey;
namespace fault = state::fault;

constexpr unsigned long smallestRsaKey = 2048;

// What a token needs for attributes besides the key's own numbers, generously.
constexpr unsigned long objectOverhead = 512;

CK_MECHANISM_TYPE generationMechanism(const KeySpec& spec)
{
    return spec.algorithm == PublicKey::Algorithm::rsa ? CKM_RSA_PKCS_KEY_PAIR_GEN
                                                       : CKM_EC_KEY_PAIR_GEN;
}

void checkTableLimits(const KeySpec& spec, const x509::Certificate& renewed,
                      const readers::Limits& limits)
{
    const auto& largestKey =
        spec.algorithm == PublicKey::Algorithm::rsa ? limits.rsaBits : limits.ecBits;
    if (largestKey && spec.bits > *largestKey)
        throw CardError(CKR_KEY_SIZE_RANGE);
    // The certificate to come will be about as long as the one it replaces.
    if (limits.certificateBytes && renewed.der().size() > *limits.certificateBytes)
        throw CardError(fault::issuedTooLarge);
}

void checkMechanism(const KeySpec& spec, const readers::CardPlace& place,
                    const std::vector<CK_MECHANISM_TYPE>& mechanisms)
{
    const CK_MECHANISM_TYPE mechanism = generationMechanism(spec);
    if (std::find(mechanisms.begin(), mechanisms.end(), mechanism) == mechanisms.end())
        throw CardError(CKR_MECHANISM_INVALID);
    const CK_MECHANISM_INFO info = place.module->mechanismInfo(place.slot, mechanism);
    const bool tellsLargest = info.ulMaxKeySize != 0;
    if (spec.bits < info.ulMinKeySize || (tellsLargest && spec.bits > info.ulMaxKeySize))
        throw CardError(CKR_KEY_SIZE_RANGE);
}

void checkMemory(const KeySpec& spec, const x509::Certificate& renewed,
                 const token::TokenInfo& info)
{
    const bool isRsa = spec.algorithm == PublicKey::Algorithm::rsa;
    // An RSA private key has the modulus, the private exponent and five numbers of half their size.
    const unsigned long privateBytes = spec.bits / 8 * (isRsa ? 5 : 1) + objectOverhead;
    const unsigned long publicBytes = spec.bits / 8 + renewed.der().size() + 2 * objectOverhead;
    const auto lacks = [](CK_ULONG free, unsigned long needed) {
        return free != CK_UNAVAILABLE_INFORMATION && free < needed;
    };
    if (lacks(info.freePrivateMemory, privateBytes) || lacks(info.freePublicMemory, publicBytes))
        throw CardError(CKR_DEVICE_MEMORY);
}

}  // namespace

KeySpec keySpecFor(const x509::Certificate& certificate)
{
    const std::optional<PublicKey>& old = certificate.publicKey();
    if (!old)
        throw CardError(fault::keyNotSupported);
    if (old->algorithm == PublicKey::Algorithm::rsa)
        return {PublicKey::Algorithm::rsa, std::max(smallestRsaKey, old->bits()), 0};
    if (old->curve != NID_X9_62_prime256v1 && old->curve != NID_secp384r1)
        throw CardError(fault::keyNotSupported);
    return {PublicKey::Algorithm::ec, old->bits(), old->curve};
}

bool isFit(const contents::PendingPair& pair, const KeySpec& spec, contents::Kind kind,
           const Bytes& subject)
{
    const contents::KeyObject& object = *pair.privateKey;
    const PublicKey& key = *object.publicKey;
    return pair.label.kind == kind && object.isLocal && object.isSensitive &&
           !object.isExtractable && (object.subject.empty() || object.subject == subject) &&
           key.algorithm == spec.algorithm && key.curve == spec.curve && key.bits() >= spec.bits;
}

void checkRoomFor(const KeySpec& spec, const x509::Certificate& renewed,
                  const readers::CardPlace& place, const std::vector<CK_MECHANISM_TYPE>& mechanisms)
{
    checkTableLimits(spec, renewed, place.entry.limits);
    checkMechanism(spec, place, mechanisms);
    checkMemory(spec, renewed, place.info);
}

SigningKey makeKey(token::Session& session, const KeySpec& spec, const NewKey& wanted)
{
    token::Template publicKey;
    token::Template privateKey;
    for (token::Template* half : {&publicKey, &privateKey})
        half->flag(CKA_TOKEN, true)
            .text(CKA_LABEL, wanted.label)
            .bytes(CKA_ID, wanted.id)
            .bytes(CKA_SUBJECT, wanted.subject);
    const bool isRsa = spec.algorithm == PublicKey::Algorithm::rsa;
    const bool decrypts = isRsa && wanted.isForDecryption;
    publicKey.flag(CKA_VERIFY, true).flag(CKA_ENCRYPT, decrypts).flag(CKA_WRAP, decrypts);
    privateKey.flag(CKA_PRIVATE, true)
        .flag(CKA_SENSITIVE, true)
        .flag(CKA_EXTRACTABLE, false)
        .flag(CKA_SIGN, true)
        .flag(CKA_DECRYPT, decrypts)
        .flag(CKA_UNWRAP, decrypts);
    if (!isRsa)
        privateKey.flag(CKA_DERIVE, wanted.isForDecryption);
    if (isRsa)
        publicKey.number(CKA_MODULUS_BITS, spec.bits)
            .bytes(CKA_PUBLIC_EXPONENT, {0x01, 0x00, 0x01});
    else
        publicKey.bytes(CKA_EC_PARAMS, x509::curveParameters(spec.curve));

    const token::KeyPairHandles handles =
        session.generate(generationMechanism(spec), publicKey, privateKey);
    const token::Attributes made = session.read(
        handles.publicKey, {CKA_MODULUS, CKA_PUBLIC_EXPONENT, CKA_EC_PARAMS, CKA_EC_POINT});
    const std::optional<PublicKey> key =
        isRsa ? x509::rsaPublicKey(made.bytes(CKA_MODULUS), made.bytes(CKA_PUBLIC_EXPONENT))
              : x509::ecPublicKey(made.bytes(CKA_EC_PARAMS), made.bytes(CKA_EC_POINT));
    if (!key)
        throw CardError(fault::keyNotSupported);
    const token::Attributes use = session.read(handles.privateKey, {CKA_ALWAYS_AUTHENTICATE});
    return {handles.privateKey, *key, use.flag(CKA_ALWAYS_AUTHENTICATE).value_or(false)};
}

}  // namespace cardlibs::renewing
