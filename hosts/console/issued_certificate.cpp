#include "hosts/console/issued_certificate.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <ctime>
#include <memory>

namespace console {

namespace {

struct Release {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(BIGNUM* number) const { BN_free(number); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
};

template <typename T>
using Owned = std::unique_ptr<T, Release>;

// The bytes of a memory BIO that something was just written into.
QByteArray contents(BIO* bio)
{
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio, &bytes);
    return size > 0 ? QByteArray(bytes, static_cast<int>(size)) : QByteArray();
}

QByteArray derOf(X509_PUBKEY* key)
{
    unsigned char* der = nullptr;
    const int size = i2d_X509_PUBKEY(key, &der);
    if (size <= 0) {
        return {};
    }
    QByteArray bytes(reinterpret_cast<const char*>(der), size);
    OPENSSL_free(der);
    return bytes;
}

QString nameText(const X509_NAME* name)
{
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    const unsigned long flags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    if (bio == nullptr || X509_NAME_print_ex(bio.get(), name, 0, flags) < 0) {
        return {};
    }
    return QString::fromUtf8(contents(bio.get()));
}

QString hexadecimal(const ASN1_INTEGER* number)
{
    const Owned<BIGNUM> value(ASN1_INTEGER_to_BN(number, nullptr));
    if (value == nullptr) {
        return {};
    }
    char* digits = BN_bn2hex(value.get());
    const QString text = QString::fromLatin1(digits);
    OPENSSL_free(digits);
    return withoutLeadingZeros(text);
}

QDate dateOf(const ASN1_TIME* time)
{
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        return {};
    }
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday};
}

std::optional<IssuedCertificate> describe(X509* certificate)
{
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr || PEM_write_bio_X509(bio.get(), certificate) != 1) {
        return std::nullopt;
    }
    IssuedCertificate issued;
    issued.pem = contents(bio.get());
    issued.publicKey = derOf(X509_get_X509_PUBKEY(certificate));
    issued.subject = nameText(X509_get_subject_name(certificate));
    issued.issuer = nameText(X509_get_issuer_name(certificate));
    issued.serialNumber = hexadecimal(X509_get0_serialNumber(certificate));
    issued.notAfter = dateOf(X509_get0_notAfter(certificate));
    issued.isAuthority = X509_check_ca(certificate) != 0;
    return issued.publicKey.isEmpty() ? std::nullopt : std::make_optional(issued);
}

}  // namespace

QString withoutLeadingZeros(const QString& digits)
{
    int first = 0;
    while (first + 1 < digits.size() && digits.at(first) == QLatin1Char('0')) {
        ++first;
    }
    return digits.mid(first);
}

std::vector<IssuedCertificate> readCertificates(const QByteArray& text)
{
    std::vector<IssuedCertificate> certificates;
    const auto keep = [&certificates](X509* certificate) {
        if (const auto issued = describe(certificate)) {
            certificates.push_back(*issued);
        }
    };

    const Owned<BIO> pem(BIO_new_mem_buf(text.constData(), text.size()));
    while (pem != nullptr) {
        const Owned<X509> certificate(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
        if (certificate == nullptr) {
            break;
        }
        keep(certificate.get());
    }
    if (certificates.empty()) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(text.constData());
        const Owned<X509> certificate(d2i_X509(nullptr, &bytes, text.size()));
        if (certificate != nullptr) {
            keep(certificate.get());
        }
    }
    // The search ends with "no start line" each time; that is no error of ours to keep.
    ERR_clear_error();
    return certificates;
}

std::optional<QByteArray> requestPublicKey(const QByteArray& requestPem)
{
    const Owned<BIO> bio(BIO_new_mem_buf(requestPem.constData(), requestPem.size()));
    if (bio == nullptr) {
        return std::nullopt;
    }
    const Owned<X509_REQ> request(PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr));
    std::optional<QByteArray> key;
    if (request != nullptr && X509_REQ_get0_pubkey(request.get()) != nullptr &&
        X509_REQ_verify(request.get(), X509_REQ_get0_pubkey(request.get())) == 1) {
        key = derOf(X509_REQ_get_X509_PUBKEY(request.get()));
    }
    ERR_clear_error();
    return key && key->isEmpty() ? std::nullopt : key;
}

std::optional<IssuedCertificate> certificateFor(const QByteArray& publicKey,
                                                const std::vector<IssuedCertificate>& certificates)
{
    const auto found = std::find_if(certificates.begin(), certificates.end(),
                                    [&publicKey](const IssuedCertificate& certificate) {
                                        return certificate.publicKey == publicKey;
                                    });
    return found != certificates.end() ? std::make_optional(*found) : std::nullopt;
}

}  // namespace console
