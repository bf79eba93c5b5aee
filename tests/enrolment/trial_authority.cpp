#include "trial_authority.h"

#include "hosts/enrolment/certificate_bytes.h"

#include <openssl/asn1.h>
#include <openssl/conf.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace trial {

using enrolment::Owned;

namespace {

void require(bool isDone, const char* what)
{
    if (!isDone) {
        throw std::runtime_error(what);
    }
}

template <typename Write>
QByteArray written(Write write)
{
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    require(bio != nullptr && write(bio.get()) == 1, "not written");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<int>(size)};
}

void fill(X509_NAME* name, const Name& parts)
{
    for (const auto& [type, value] : parts) {
        require(X509_NAME_add_entry_by_txt(name, type.c_str(), MBSTRING_UTF8,
                                           reinterpret_cast<const unsigned char*>(value.data()),
                                           static_cast<int>(value.size()), -1, 0) == 1,
                "name");
    }
}

struct Extensions {
    explicit Extensions(const std::vector<std::string>& lines)
    {
        for (const std::string& line : lines) {
            const auto equals = line.find('=');
            X509_EXTENSION* extension = X509V3_EXT_conf(
                nullptr, nullptr, line.substr(0, equals).c_str(), line.substr(equals + 1).c_str());
            require(extension != nullptr && X509v3_add_ext(&list, extension, -1) != nullptr,
                    "extension");
            X509_EXTENSION_free(extension);
        }
    }
    ~Extensions() { sk_X509_EXTENSION_pop_free(list, &X509_EXTENSION_free); }
    Extensions(const Extensions&) = delete;
    Extensions& operator=(const Extensions&) = delete;
    Extensions(Extensions&&) = delete;
    Extensions& operator=(Extensions&&) = delete;

    STACK_OF(X509_EXTENSION) * list = nullptr;
};

QByteArray signedCertificate(EVP_PKEY* key, const Wish& wish, const Name& issuer, EVP_PKEY* signer)
{
    const Owned<X509> certificate(X509_new());
    unsigned char serial[8] = {};
    require(RAND_bytes(serial, sizeof serial) == 1, "serial number");
    std::uint64_t number = 0;
    for (const unsigned char byte : serial) {
        number = number << 8U | byte;
    }
    require(X509_set_version(certificate.get(), 2) == 1 &&
                ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), number) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(certificate.get()), wish.beginsInSeconds) !=
                    nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(certificate.get()), wish.endsInSeconds) !=
                    nullptr &&
                X509_set_pubkey(certificate.get(), key) == 1,
            "certificate");
    fill(X509_get_subject_name(certificate.get()), wish.subject);
    fill(X509_get_issuer_name(certificate.get()), issuer);
    const Extensions extensions(wish.extensions);
    for (int i = 0; i < X509v3_get_ext_count(extensions.list); ++i) {
        require(X509_add_ext(certificate.get(), X509v3_get_ext(extensions.list, i), -1) == 1,
                "extension");
    }
    require(X509_sign(certificate.get(), signer, EVP_sha256()) > 0, "signature");
    return enrolment::derOf(certificate.get());
}

Owned<PKCS7> pkcs7With(const std::vector<QByteArray>& certificatesDer)
{
    Owned<PKCS7> message(PKCS7_new());
    require(PKCS7_set_type(message.get(), NID_pkcs7_signed) == 1 &&
                PKCS7_content_new(message.get(), NID_pkcs7_data) == 1 &&
                PKCS7_set_detached(message.get(), 1) == 1,
            "PKCS#7");
    for (const QByteArray& der : certificatesDer) {
        require(PKCS7_add_certificate(message.get(), enrolment::certificateFrom(der).get()) == 1,
                "certificate of the PKCS#7");
    }
    return message;
}

}  // namespace

Key newKey()
{
    return Key(EVP_EC_gen("P-256"));
}

QByteArray keyPem(EVP_PKEY* key, const char* password)
{
    const EVP_CIPHER* cipher = password == nullptr ? nullptr : EVP_aes_256_cbc();
    const QByteArray secret(password);
    return written([&](BIO* bio) {
        return PEM_write_bio_PKCS8PrivateKey(bio, key, cipher, secret.constData(), secret.size(),
                                             nullptr, nullptr);
    });
}

Name ada()
{
    return {{"CN", "Ada Castelvane"}, {"serialNumber", "TINIT-CSTDAA80A41H501X"}};
}

QByteArray requestPem(EVP_PKEY* key, const Name& subject,
                      const std::vector<std::string>& extensions, EVP_PKEY* signer)
{
    const Owned<X509_REQ> request(X509_REQ_new());
    require(X509_REQ_set_pubkey(request.get(), key) == 1, "key");
    fill(X509_REQ_get_subject_name(request.get()), subject);
    const Extensions list(extensions);
    if (list.list != nullptr) {
        require(X509_REQ_add_extensions(request.get(), list.list) == 1, "extensions");
    }
    require(X509_REQ_sign(request.get(), signer == nullptr ? key : signer, EVP_sha256()) > 0,
            "signature");
    return written([&](BIO* bio) { return PEM_write_bio_X509_REQ(bio, request.get()); });
}

Authority::Authority(const std::string& name, const Authority* parent)
    : m_name{{"CN", name}}
    , m_key(newKey())
{
    Wish wish;
    wish.subject = m_name;
    wish.endsInSeconds = 10L * 365 * 24 * 3600;
    wish.extensions = {"basicConstraints=critical,CA:TRUE",
                       "keyUsage=critical,keyCertSign,cRLSign"};
    m_der = parent == nullptr
                ? signedCertificate(m_key.get(), wish, m_name, m_key.get())
                : signedCertificate(m_key.get(), wish, parent->m_name, parent->m_key.get());
}

QByteArray Authority::pem() const
{
    return pemOf(m_der);
}

QByteArray Authority::issue(EVP_PKEY* key, const Wish& wish) const
{
    return signedCertificate(key, wish, m_name, m_key.get());
}

QByteArray Authority::issueFor(const QByteArray& request) const
{
    const Owned<X509_REQ> asked = enrolment::requestFrom(request);
    require(asked != nullptr, "no request");
    Wish wish;
    wish.subject.clear();
    const X509_NAME* name = X509_REQ_get_subject_name(asked.get());
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        const ASN1_STRING* value = X509_NAME_ENTRY_get_data(entry);
        wish.subject.emplace_back(
            OBJ_nid2sn(OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry))),
            std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
                        static_cast<std::size_t>(ASN1_STRING_length(value))));
    }
    return issue(X509_REQ_get0_pubkey(asked.get()), wish);
}

QByteArray pemOf(const QByteArray& certificateDer)
{
    const Owned<X509> certificate = enrolment::certificateFrom(certificateDer);
    return written([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate.get()); });
}

QByteArray pkcs7Of(const std::vector<QByteArray>& certificatesDer)
{
    const Owned<PKCS7> message = pkcs7With(certificatesDer);
    return written([&](BIO* bio) { return i2d_PKCS7_bio(bio, message.get()); });
}

QByteArray pkcs7PemOf(const std::vector<QByteArray>& certificatesDer)
{
    const Owned<PKCS7> message = pkcs7With(certificatesDer);
    return written([&](BIO* bio) { return PEM_write_bio_PKCS7(bio, message.get()); });
}

}  // namespace trial
