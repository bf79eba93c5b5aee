#include "cardlibs/renewing/removal.h"

#include "cardlibs/state/card_error.h"

#include <algorithm>

namespace cardlibs::renewing {
namespace {

using contents::CertificateObject;
using contents::KeyObject;
using state::CardError;

bool mayStillDecrypt(const x509::Certificate& certificate)
{
    const x509::KeyUsage& usage = certificate.keyUsage();
    return usage.keyEncipherment || usage.dataEncipherment || usage.keyAgreement;
}

bool isKeyOf(const x509::Certificate& certificate, const KeyObject& key)
{
    return key.publicKey && certificate.publicKey() && *key.publicKey == *certificate.publicKey();
}

bool isKeyOfAnother(const contents::CardObjects& objects, const x509::Certificate& certificate)
{
    return std::any_of(objects.certificates.begin(), objects.certificates.end(),
                       [&](const CertificateObject& other) {
                           return other.certificate.der() != certificate.der() &&
                                  other.certificate.publicKey() == certificate.publicKey();
                       });
}

void destroyKeys(token::Session& session, const std::vector<KeyObject>& keys,
                 const x509::Certificate& certificate)
{
    for (const KeyObject& key : keys)
        if (isKeyOf(certificate, key))
            session.destroy(key.handle);
}

}  // namespace

void removeReplaced(token::Session& session, const contents::CardContents& contents,
                    const CertificateObject& replaced)
{
    const x509::Certificate& certificate = replaced.certificate;
    const contents::CardObjects& objects = contents.objects();
    if (mayStillDecrypt(certificate))
        return;
    try {
        if (!isKeyOfAnother(objects, certificate)) {
            destroyKeys(session, objects.privateKeys, certificate);
            destroyKeys(session, objects.publicKeys, certificate);
        }
        for (const CertificateObject& copy : objects.certificates)
            if (copy.certificate.der() == certificate.der())
                session.destroy(copy.handle);
    } catch (const CardError& error) {
        throw CardError::withText(
            error.number(),
            "Il nuovo certificato e' installato e utilizzabile, ma il precedente non e' stato "
            "tolto "
            "del tutto: ripetere l'installazione dello stesso certificato per completarla.");
    }
}

}  // namespace cardlibs::renewing
