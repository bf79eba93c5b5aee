// An X.509 certificate (RFC 5280), read once into values.

#ifndef TARVELOQT_CARDLIBS_X509_CERTIFICATE_H
#define TARVELOQT_CARDLIBS_X509_CERTIFICATE_H

#include "cardlibs/bytes.h"
#include "cardlibs/x509/public_key.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace cardlibs::x509 {

// Attribute types that renewals look at.
inline constexpr std::string_view serialNumberType = "2.5.4.5";
inline constexpr std::string_view dnQualifierType = "2.5.4.46";

struct CertificatePolicy {
    std::string identifier;
    // Explicit text of its first user notice that has one (RFC 5280, 4.2.1.4); UTF-8.
    std::string explicitText;
};

// Bits of keyUsage that matter here; without the extension any use is allowed.
struct KeyUsage {
    bool present = false;
    bool digitalSignature = false;
    bool contentCommitment = false;
    bool keyEncipherment = false;
    bool dataEncipherment = false;
    bool keyAgreement = false;

    // Something may have been encrypted for the key.
    bool allowsDecryption() const
    {
        return !present || keyEncipherment || dataEncipherment || keyAgreement;
    }
};

class Certificate {
public:
    // Nothing when the bytes are not exactly one certificate.
    static std::optional<Certificate> parse(const Bytes& der);
    // The same for what a card keeps, which may have filled the object up behind the certificate.
    static std::optional<Certificate> parseStored(const Bytes& value);

    const Bytes& der() const { return m_der; }
    // SHA-256 over the DER.
    const Bytes& digest() const { return m_digest; }
    const Bytes& subject() const { return m_subject; }
    const Bytes& issuer() const { return m_issuer; }
    // Upper-case hexadecimal of the serial number, and its DER.
    const std::string& serialNumber() const { return m_serialNumber; }
    const Bytes& serialNumberDer() const { return m_serialNumberDer; }
    std::time_t notBefore() const { return m_notBefore; }
    std::time_t notAfter() const { return m_notAfter; }
    const std::optional<PublicKey>& publicKey() const { return m_publicKey; }
    bool isAuthority() const { return m_isAuthority; }
    const KeyUsage& keyUsage() const { return m_keyUsage; }
    // Extended key usage absent, or client authentication (or any usage) among it.
    bool allowsClientAuthentication() const { return m_allowsClientAuthentication; }
    bool hasExtendedKeyUsage() const { return m_hasExtendedKeyUsage; }
    // In the certificate's order.
    const std::vector<CertificatePolicy>& policies() const { return m_policies; }
    bool hasPolicy(std::string_view identifier) const;

    // For libcrypto; lives as long as a copy of this object.
    X509* get() const { return m_certificate.get(); }

private:
    std::shared_ptr<X509> m_certificate;
    Bytes m_der;
    Bytes m_digest;
    Bytes m_subject;
    Bytes m_issuer;
    std::string m_serialNumber;
    Bytes m_serialNumberDer;
    std::time_t m_notBefore = 0;
    std::time_t m_notAfter = 0;
    std::optional<PublicKey> m_publicKey;
    bool m_isAuthority = false;
    KeyUsage m_keyUsage;
    bool m_allowsClientAuthentication = true;
    bool m_hasExtendedKeyUsage = false;
    std::vector<CertificatePolicy> m_policies;
};

// "yyyyMMdd" in UTC.
std::string utcDate(std::time_t time);

Bytes sha256(const Bytes& data);

}  // namespace cardlibs::x509

#endif
