#include "cardlibs/x509/issued.h"

#include <cstring>

namespace cardlibs::x509 {
namespace {

constexpr unsigned char sequenceTag = 0x30;

std::vector<Certificate> fromPkcs7(const Bytes& der)
{
    const unsigned char* at = der.data();
    const Pkcs7Pointer bundle(d2i_PKCS7(nullptr, &at, static_cast<long>(der.size())));
    if (!bundle || at != der.data() + der.size() || !PKCS7_type_is_signed(bundle.get()) ||
        bundle->d.sign == nullptr)
        return {};
    std::vector<Certificate> certificates;
    for (int i = 0; i < sk_X509_num(bundle->d.sign->cert); ++i) {
        unsigned char* raw = nullptr;
        const int length = i2d_X509(sk_X509_value(bundle->d.sign->cert, i), &raw);
        if (length <= 0)
            return {};
        const Bytes one(raw, raw + length);
        OPENSSL_free(raw);
        std::optional<Certificate> certificate = Certificate::parse(one);
        if (!certificate)
            return {};
        certificates.push_back(std::move(*certificate));
    }
    return certificates;
}

std::vector<Certificate> fromDer(const Bytes& der)
{
    if (std::optional<Certificate> certificate = Certificate::parse(der))
        return {std::move(*certificate)};
    return fromPkcs7(der);
}

bool isCertificateBlock(const std::string& name)
{
    return name == PEM_STRING_X509 || name == PEM_STRING_X509_OLD || name == PEM_STRING_PKCS7 ||
           name == PEM_STRING_PKCS7_SIGNED || name == PEM_STRING_CMS;
}

std::vector<Certificate> fromPem(const Bytes& text)
{
    const BioPointer memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (!memory)
        return {};
    std::vector<Certificate> certificates;
    while (true) {
        char* name = nullptr;
        char* header = nullptr;
        unsigned char* data = nullptr;
        long length = 0;
        if (PEM_read_bio(memory.get(), &name, &header, &data, &length) != 1) {
            // Running out of blocks is the end; a block that is cut short is not.
            if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE)
                return {};
            return certificates;
        }
        const std::string block = name;
        const Bytes der(data, data + length);
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
        const std::vector<Certificate> found =
            isCertificateBlock(block) ? fromDer(der) : std::vector<Certificate>();
        if (found.empty())
            return {};
        certificates.insert(certificates.end(), found.begin(), found.end());
    }
}

// What is left of base64 when blanks and line ends are taken out; empty when it is no base64.
Bytes fromBase64(const Bytes& text)
{
    Bytes digits;
    for (const unsigned char c : text)
        if (std::strchr(" \t\r\n", c) == nullptr)
            digits.push_back(c);
    if (digits.empty() || digits.size() % 4 != 0)
        return {};
    std::size_t padding = 0;
    while (padding < 2 && digits[digits.size() - 1 - padding] == '=')
        ++padding;
    Bytes bytes(digits.size() / 4 * 3);
    if (EVP_DecodeBlock(bytes.data(), digits.data(), static_cast<int>(digits.size())) < 0)
        return {};
    bytes.resize(bytes.size() - padding);
    return bytes;
}

}  // namespace

std::vector<Certificate> parseIssued(const Bytes& bytes)
{
    const ErrorQueueGuard guard;
    if (bytes.empty() || bytes.size() > longestIssued)
        return {};
    if (bytes[0] == sequenceTag && bytes.size() > 1 && bytes[1] >= 0x80)
        return fromDer(bytes);
    const std::string text(bytes.begin(), bytes.end());
    if (text.find("-----BEGIN ") != std::string::npos)
        return fromPem(bytes);
    return fromDer(fromBase64(bytes));
}

Bytes issuedBytes(const char* text)
{
    const auto* raw = reinterpret_cast<const unsigned char*>(text);
    // No text begins like this. DER whose length takes other than two octets is no certificate that
    // would be looked at, and a first octet of 0 would be no DER.
    if (raw[0] == sequenceTag && raw[1] == 0x82 && raw[2] != 0) {
        const std::size_t length = (std::size_t{raw[2]} << 8 | raw[3]) + 4;
        if (length > longestIssued)
            return {};
        return Bytes(raw, raw + length);
    }
    const std::size_t length = strnlen(text, longestIssued + 1);
    if (length > longestIssued)
        return {};
    return Bytes(raw, raw + length);
}

}  // namespace cardlibs::x509
