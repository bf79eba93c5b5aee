#include "tools/softcard/certified_key.h"

#include <openssl/rand.h>

#include <stdexcept>

namespace softcard {
namespace {

using cardlibs::Bytes;
using cardlibs::token::Session;
namespace renewing = cardlibs::renewing;
namespace x509 = cardlibs::x509;

constexpr std::time_t day = 86400;
constexpr std::time_t lifetime = 1095 * day;

renewing::KeySpec specFor(KeyType type)
{
    using Algorithm = x509::PublicKey::Algorithm;
    switch (type) {
    case KeyType::rsa1024:
        return {Algorithm::rsa, 1024, 0};
    case KeyType::rsa3072:
        return {Algorithm::rsa, 3072, 0};
    case KeyType::p256:
        return {Algorithm::ec, 256, NID_X9_62_prime256v1};
    case KeyType::p384:
        return {Algorithm::ec, 384, NID_secp384r1};
    case KeyType::rsa2048:
        break;
    }
    return {Algorithm::rsa, 2048, 0};
}

// A card as its maker delivers it has identifiers of its own kind.
Bytes drawnIdentifier()
{
    Bytes id(8);
    if (RAND_bytes(id.data(), static_cast<int>(id.size())) != 1)
        throw std::runtime_error("no random numbers to be had");
    return id;
}

Bytes nameDer(const X509_NAME* name)
{
    const unsigned char* der = nullptr;
    std::size_t length = 0;
    if (X509_NAME_get0_der(name, &der, &length) != 1)
        throw std::runtime_error("cannot encode a subject");
    return Bytes(der, der + length);
}

}  // namespace

Validity validityFor(int daysToExpiry)
{
    const std::time_t today = std::time(nullptr) / day * day;
    const std::time_t notAfter = today + (daysToExpiry + 1) * day - 1;
    return {notAfter - lifetime, notAfter};
}

renewing::SigningKey addKey(Session& session, const CertifiedKeyOrder& order)
{
    renewing::NewKey key;
    key.label = order.label;
    key.id = order.id;
    key.subject = nameDer(nameOf(order.subject).get());
    key.isForDecryption = order.profile.keyUsage.find("Encipherment") != std::string::npos;
    return renewing::makeKey(session, specFor(order.keyType), key);
}

void addCertificate(Session& session, const std::string& label, const Bytes& id, const Bytes& der)
{
    const auto certificate = x509::Certificate::parse(der);
    if (!certificate)
        throw std::runtime_error("this is no certificate");
    cardlibs::token::Template object;
    object.number(CKA_CLASS, CKO_CERTIFICATE)
        .number(CKA_CERTIFICATE_TYPE, CKC_X_509)
        .flag(CKA_TOKEN, true)
        .flag(CKA_PRIVATE, false)
        .text(CKA_LABEL, label)
        .bytes(CKA_ID, id)
        .bytes(CKA_SUBJECT, certificate->subject())
        .bytes(CKA_ISSUER, certificate->issuer())
        .bytes(CKA_SERIAL_NUMBER, certificate->serialNumberDer())
        .bytes(CKA_VALUE, der);
    session.create(object);
}

Bytes addCertifiedKey(Session& session, const DemoAuthority& authority, CertifiedKeyOrder order)
{
    if (order.id.empty())
        order.id = drawnIdentifier();
    const renewing::SigningKey key = addKey(session, order);
    Bytes der = authority.certify(nameOf(order.subject).get(), x509::evpKey(key.publicKey).get(),
                                  order.validity, order.profile);
    addCertificate(session, order.label, order.id, der);
    return der;
}

}  // namespace softcard
