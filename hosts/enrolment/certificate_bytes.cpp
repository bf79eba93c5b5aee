#include "hosts/enrolment/certificate_bytes.h"

#include "hosts/texts/printable.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <new>

namespace enrolment {

namespace {

template <typename Object>
QByteArray encoded(Object* object, int (*encode)(const Object*, unsigned char**))
{
    unsigned char* der = nullptr;
    const int size = encode(object, &der);
    if (size <= 0) {
        throw std::bad_alloc();
    }
    QByteArray bytes(reinterpret_cast<const char*>(der), size);
    OPENSSL_free(der);
    return bytes;
}

// Null unless the object takes all the bytes.
template <typename Object>
Owned<Object> decoded(const QByteArray& der,
                      Object* (*decode)(Object**, const unsigned char**, long))
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.constData());
    const auto* end = bytes + der.size();
    Owned<Object> object(decode(nullptr, &bytes, der.size()));
    // A failure is told by the null alone; the queue is not to keep it for others.
    ERR_clear_error();
    return bytes == end ? std::move(object) : nullptr;
}

// One block of PEM: its label and its bytes.
struct PemBlock {
    QByteArray label;
    QByteArray der;
};

std::vector<PemBlock> pemBlocks(const QByteArray& text)
{
    std::vector<PemBlock> blocks;
    const Owned<BIO> bio(BIO_new_mem_buf(text.constData(), text.size()));
    if (bio == nullptr) {
        throw std::bad_alloc();
    }
    char* label = nullptr;
    char* header = nullptr;
    unsigned char* der = nullptr;
    long size = 0;
    while (PEM_read_bio(bio.get(), &label, &header, &der, &size) == 1) {
        blocks.push_back({QByteArray(label),
                          QByteArray(reinterpret_cast<const char*>(der), static_cast<int>(size))});
        OPENSSL_free(label);
        OPENSSL_free(header);
        OPENSSL_free(der);
    }
    ERR_clear_error();
    return blocks;
}

bool isCertificateLabel(const QByteArray& label)
{
    return label == PEM_STRING_X509 || label == PEM_STRING_X509_OLD;
}

bool isPkcs7Label(const QByteArray& label)
{
    return label == PEM_STRING_PKCS7 || label == PEM_STRING_PKCS7_SIGNED || label == PEM_STRING_CMS;
}

}  // namespace

std::vector<QByteArray> certificatesIn(const QByteArray& bytes)
{
    std::vector<QByteArray> certificates;
    for (const PemBlock& block : pemBlocks(bytes)) {
        if (isCertificateLabel(block.label) && certificateFrom(block.der) != nullptr) {
            certificates.push_back(block.der);
        } else if (isPkcs7Label(block.label)) {
            const std::vector<QByteArray> several = certificatesInPkcs7(block.der);
            certificates.insert(certificates.end(), several.begin(), several.end());
        }
    }
    if (certificates.empty() && certificateFrom(bytes) != nullptr) {
        certificates.push_back(bytes);
    }
    return certificates.empty() ? certificatesInPkcs7(bytes) : certificates;
}

std::vector<QByteArray> certificatesInPkcs7(const QByteArray& der)
{
    const Owned<PKCS7> message = decoded<PKCS7>(der, &d2i_PKCS7);
    if (message == nullptr || PKCS7_type_is_signed(message.get()) != 1 ||
        message->d.sign == nullptr) {
        return {};
    }
    std::vector<QByteArray> certificates;
    const STACK_OF(X509)* list = message->d.sign->cert;
    certificates.reserve(static_cast<std::size_t>(std::max(0, sk_X509_num(list))));
    for (int i = 0; i < sk_X509_num(list); ++i) {
        certificates.push_back(derOf(sk_X509_value(list, i)));
    }
    return certificates;
}

Owned<X509> certificateFrom(const QByteArray& der)
{
    return decoded<X509>(der, &d2i_X509);
}

Owned<X509_REQ> requestFrom(const QByteArray& pem)
{
    const Owned<BIO> bio(BIO_new_mem_buf(pem.constData(), pem.size()));
    if (bio == nullptr) {
        throw std::bad_alloc();
    }
    Owned<X509_REQ> request(PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr));
    EVP_PKEY* key = request == nullptr ? nullptr : X509_REQ_get0_pubkey(request.get());
    const bool isSigned = key != nullptr && X509_REQ_verify(request.get(), key) == 1;
    ERR_clear_error();
    return isSigned ? std::move(request) : nullptr;
}

QByteArray derOf(X509* certificate)
{
    return encoded<X509>(certificate, &i2d_X509);
}

QByteArray derOf(X509_REQ* request)
{
    return encoded<X509_REQ>(request, &i2d_X509_REQ);
}

QByteArray derOf(X509_PUBKEY* key)
{
    return encoded<X509_PUBKEY>(key, &i2d_X509_PUBKEY);
}

QString nameText(const X509_NAME* name)
{
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    const unsigned long flags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    if (bio == nullptr || X509_NAME_print_ex(bio.get(), name, 0, flags) < 0) {
        ERR_clear_error();
        return {};
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return texts::printable(QString::fromUtf8(text, static_cast<int>(size)));
}

}  // namespace enrolment
