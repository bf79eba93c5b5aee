#include "cardlibs/x509/certificate.h"

#include <algorithm>

namespace cardlibs::x509 {
namespace {

using PoliciesPointer = Pointer<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>;
using UsagesPointer = Pointer<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free>;
using BitsPointer = Pointer<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;

std::optional<std::time_t> timeOf(const ASN1_TIME* time)
{
    std::tm parts = {};
    if (ASN1_TIME_to_tm(time, &parts) != 1)
        return std::nullopt;
    return timegm(&parts);
}

Bytes nameDer(const X509_NAME* name)
{
    const unsigned char* der = nullptr;
    std::size_t length = 0;
    if (X509_NAME_get0_der(name, &der, &length) != 1)
        return {};
    return Bytes(der, der + length);
}

std::string hexadecimalSerial(const ASN1_INTEGER* serial)
{
    const NumberPointer number(ASN1_INTEGER_to_BN(serial, nullptr));
    if (!number)
        return {};
    char* text = BN_bn2hex(number.get());
    if (text == nullptr)
        return {};
    std::string serialText = text;
    OPENSSL_free(text);
    return serialText;
}

Bytes serialDer(const ASN1_INTEGER* serial)
{
    unsigned char* raw = nullptr;
    const int length = i2d_ASN1_INTEGER(serial, &raw);
    if (length <= 0)
        return {};
    Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

KeyUsage keyUsageOf(const X509* certificate)
{
    KeyUsage usage;
    const BitsPointer bits(static_cast<ASN1_BIT_STRING*>(
        X509_get_ext_d2i(certificate, NID_key_usage, nullptr, nullptr)));
    if (!bits)
        return usage;
    // Bit numbers of RFC 5280, 4.2.1.3.
    const auto bit = [&](int number) { return ASN1_BIT_STRING_get_bit(bits.get(), number) != 0; };
    usage.present = true;
    usage.digitalSignature = bit(0);
    usage.contentCommitment = bit(1);
    usage.keyEncipherment = bit(2);
    usage.dataEncipherment = bit(3);
    usage.keyAgreement = bit(4);
    return usage;
}

std::string explicitTextOf(const POLICYINFO* policy)
{
    for (int i = 0; i < sk_POLICYQUALINFO_num(policy->qualifiers); ++i) {
        const POLICYQUALINFO* qualifier = sk_POLICYQUALINFO_value(policy->qualifiers, i);
        if (OBJ_obj2nid(qualifier->pqualid) != NID_id_qt_unotice)
            continue;
        const USERNOTICE* notice = qualifier->d.usernotice;
        if (notice == nullptr || notice->exptext == nullptr)
            continue;
        unsigned char* raw = nullptr;
        const int length = ASN1_STRING_to_UTF8(&raw, notice->exptext);
        if (length < 0)
            continue;
        std::string text(reinterpret_cast<const char*>(raw), static_cast<std::size_t>(length));
        OPENSSL_free(raw);
        return text;
    }
    return {};
}

std::vector<CertificatePolicy> policiesOf(const X509* certificate)
{
    std::vector<CertificatePolicy> policies;
    const PoliciesPointer raw(static_cast<CERTIFICATEPOLICIES*>(
        X509_get_ext_d2i(certificate, NID_certificate_policies, nullptr, nullptr)));
    for (int i = 0; raw && i < sk_POLICYINFO_num(raw.get()); ++i) {
        const POLICYINFO* policy = sk_POLICYINFO_value(raw.get(), i);
        char identifier[256] = {};
        if (OBJ_obj2txt(identifier, sizeof identifier, policy->policyid, 1) > 0)
            policies.push_back({identifier, explicitTextOf(policy)});
    }
    return policies;
}

bool allowsClient(const EXTENDED_KEY_USAGE* usages)
{
    for (int i = 0; i < sk_ASN1_OBJECT_num(usages); ++i) {
        const int usage = OBJ_obj2nid(sk_ASN1_OBJECT_value(usages, i));
        if (usage == NID_client_auth || usage == NID_anyExtendedKeyUsage)
            return true;
    }
    return false;
}

}  // namespace

std::optional<Certificate> Certificate::parse(const Bytes& der)
{
    const ErrorQueueGuard guard;
    const unsigned char* at = der.data();
    X509* raw = d2i_X509(nullptr, &at, static_cast<long>(der.size()));
    Certificate certificate;
    certificate.m_certificate.reset(raw, X509_free);
    if (raw == nullptr || at != der.data() + der.size())
        return std::nullopt;
    const std::optional<std::time_t> notBefore = timeOf(X509_get0_notBefore(raw));
    const std::optional<std::time_t> notAfter = timeOf(X509_get0_notAfter(raw));
    if (!notBefore || !notAfter)
        return std::nullopt;
    certificate.m_der = der;
    certificate.m_digest = sha256(der);
    certificate.m_subject = nameDer(X509_get_subject_name(raw));
    certificate.m_issuer = nameDer(X509_get_issuer_name(raw));
    certificate.m_serialNumber = hexadecimalSerial(X509_get0_serialNumber(raw));
    certificate.m_serialNumberDer = serialDer(X509_get0_serialNumber(raw));
    certificate.m_notBefore = *notBefore;
    certificate.m_notAfter = *notAfter;
    certificate.m_publicKey = publicKeyOf(X509_get0_pubkey(raw));
    certificate.m_isAuthority = X509_check_ca(raw) != 0 && X509_check_ca(raw) != 3;
    certificate.m_keyUsage = keyUsageOf(raw);
    const UsagesPointer usages(static_cast<EXTENDED_KEY_USAGE*>(
        X509_get_ext_d2i(raw, NID_ext_key_usage, nullptr, nullptr)));
    certificate.m_hasExtendedKeyUsage = usages != nullptr;
    certificate.m_allowsClientAuthentication = !usages || allowsClient(usages.get());
    certificate.m_policies = policiesOf(raw);
    return certificate;
}

std::optional<Certificate> Certificate::parseStored(const Bytes& value)
{
    const unsigned char* at = value.data();
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const ErrorQueueGuard guard;
    const int form =
        ASN1_get_object(&at, &length, &tag, &tagClass, static_cast<long>(value.size()));
    // 0x80: not even a header; a bit of it: the length is not given, or exceeds the value.
    if ((form & 0x81) != 0)
        return std::nullopt;
    return parse(Bytes(value.data(), at + length));
}

bool Certificate::hasPolicy(std::string_view identifier) const
{
    return std::any_of(m_policies.begin(), m_policies.end(), [&](const CertificatePolicy& policy) {
        return policy.identifier == identifier;
    });
}

std::string utcDate(std::time_t time)
{
    std::tm parts = {};
    char text[32] = {};
    if (gmtime_r(&time, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y%m%d", &parts) == 0)
        return {};
    return text;
}

Bytes sha256(const Bytes& data)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
        return {};
    digest.resize(length);
    return digest;
}

}  // namespace cardlibs::x509
