#include "tests/enrolment/cmp_credentials.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>
#include <string>

namespace cmp_tests {

namespace {

void require(bool succeeded, const char* what)
{
    if (!succeeded) {
        throw std::runtime_error(std::string("libcrypto: ") + what);
    }
}

void addToName(X509_NAME* name, int attribute, const char* value)
{
    require(X509_NAME_add_entry_by_NID(name, attribute, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(value), -1, -1,
                                       0) == 1,
            "name");
}

void addExtension(X509* certificate, X509* issuer, int extension, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* made = X509V3_EXT_conf_nid(nullptr, &context, extension, value);
    require(made != nullptr, value);
    const int added = X509_add_ext(certificate, made, -1);
    X509_EXTENSION_free(made);
    require(added == 1, "extension");
}

void setSerialNumber(X509* certificate)
{
    static long last = 0;
    require(ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++last) == 1, "serial number");
}

TestCertificate unsignedCertificate(X509_NAME* subject, EVP_PKEY* publicKey, X509_NAME* issuer,
                                    int daysLeft)
{
    constexpr long day = 24L * 60 * 60;
    TestCertificate certificate(X509_new());
    X509* x509 = certificate.get();
    require(x509 != nullptr && X509_set_version(x509, X509_VERSION_3) == 1, "certificate");
    setSerialNumber(x509);
    const long begin = daysLeft < 0 ? (daysLeft - 10) * day : -day;
    require(X509_set_subject_name(x509, subject) == 1 && X509_set_issuer_name(x509, issuer) == 1 &&
                X509_set_pubkey(x509, publicKey) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(x509), begin) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(x509), daysLeft * day) != nullptr,
            "certificate");
    return certificate;
}

void sign(X509* certificate, EVP_PKEY* key)
{
    require(X509_sign(certificate, key, EVP_sha256()) > 0, "signature");
}

template <typename Write>
QByteArray written(Write write)
{
    BIO* memory = BIO_new(BIO_s_mem());
    require(memory != nullptr && write(memory) == 1, "PEM");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory, &bytes);
    QByteArray result(bytes, static_cast<int>(size));
    BIO_free(memory);
    return result;
}

}  // namespace

TestKey newTestKey()
{
    TestKey key(EVP_EC_gen("P-256"));
    require(key != nullptr, "key");
    return key;
}

Credential newCredential(const char* commonName, Use use, const Credential* issuer, int daysLeft)
{
    Credential made;
    made.key = newTestKey();
    X509_NAME* name = X509_NAME_new();
    addToName(name, NID_commonName, commonName);
    X509_NAME* issuerName =
        issuer == nullptr ? name : X509_get_subject_name(issuer->certificate.get());
    made.certificate = unsignedCertificate(name, made.key.get(), issuerName, daysLeft);
    X509_NAME_free(name);
    X509* x509 = made.certificate.get();
    X509* issuedBy = issuer == nullptr ? x509 : issuer->certificate.get();
    addExtension(x509, issuedBy, NID_subject_key_identifier, "hash");
    switch (use) {
    case Use::authority:
        addExtension(x509, issuedBy, NID_basic_constraints, "critical,CA:TRUE");
        addExtension(x509, issuedBy, NID_key_usage, "critical,keyCertSign,digitalSignature");
        break;
    case Use::messageSigner:
        addExtension(x509, issuedBy, NID_key_usage, "critical,digitalSignature");
        break;
    case Use::tlsServer:
        addExtension(x509, issuedBy, NID_subject_alt_name, "IP:127.0.0.1");
        addExtension(x509, issuedBy, NID_ext_key_usage, "serverAuth");
        break;
    }
    sign(x509, issuer == nullptr ? made.key.get() : issuer->key.get());
    return made;
}

TestCertificate certificateFor(X509_NAME* subject, EVP_PKEY* publicKey, const Credential& issuer)
{
    X509* issuedBy = issuer.certificate.get();
    auto certificate =
        unsignedCertificate(subject, publicKey, X509_get_subject_name(issuedBy), 365);
    addExtension(certificate.get(), issuedBy, NID_authority_key_identifier, "keyid");
    addExtension(certificate.get(), issuedBy, NID_key_usage, "critical,nonRepudiation");
    sign(certificate.get(), issuer.key.get());
    return certificate;
}

TestRequest newRequest(EVP_PKEY* key, const char* holder)
{
    TestRequest request(X509_REQ_new());
    require(request != nullptr, "request");
    X509_NAME* name = X509_REQ_get_subject_name(request.get());
    addToName(name, NID_commonName, "Mario Rossi");
    addToName(name, NID_serialNumber, holder);
    require(X509_REQ_set_pubkey(request.get(), key) == 1 &&
                X509_REQ_sign(request.get(), key, EVP_sha256()) > 0,
            "request");
    return request;
}

QByteArray pemOf(X509_REQ* request)
{
    return written([request](BIO* to) { return PEM_write_bio_X509_REQ(to, request); });
}

QByteArray pemOf(X509* certificate)
{
    return written([certificate](BIO* to) { return PEM_write_bio_X509(to, certificate); });
}

QByteArray pemOf(EVP_PKEY* key)
{
    return written([key](BIO* to) {
        return PEM_write_bio_PrivateKey(to, key, nullptr, nullptr, 0, nullptr, nullptr);
    });
}

QByteArray derOf(X509* certificate)
{
    return written([certificate](BIO* to) { return i2d_X509_bio(to, certificate); });
}

}  // namespace cmp_tests
