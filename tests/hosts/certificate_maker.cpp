#include "certificate_maker.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace hosts {

namespace {

QByteArray contents(BIO* bio)
{
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio, &bytes);
    return {bytes, static_cast<int>(size)};
}

void setName(X509_NAME* name, const char* commonName)
{
    ASSERT_EQ(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                         reinterpret_cast<const unsigned char*>(commonName), -1, -1,
                                         0),
              1);
}

}  // namespace

Key newKey()
{
    return Key(EVP_EC_gen("P-256"));
}

Certificate certificateFrom(EVP_PKEY* key, const char* commonName, bool authority)
{
    Certificate certificate(X509_new());
    EXPECT_EQ(X509_set_version(certificate.get(), 2), 1);
    EXPECT_EQ(ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 7), 1);
    EXPECT_EQ(ASN1_TIME_set_string(X509_getm_notBefore(certificate.get()), "20260101000000Z"), 1);
    EXPECT_EQ(ASN1_TIME_set_string(X509_getm_notAfter(certificate.get()), "20300120235959Z"), 1);
    setName(X509_get_subject_name(certificate.get()), commonName);
    setName(X509_get_issuer_name(certificate.get()), "Castelvane Demo CA");
    EXPECT_EQ(X509_set_pubkey(certificate.get(), key), 1);
    if (authority) {
        X509_EXTENSION* extension =
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "critical,CA:TRUE");
        EXPECT_EQ(X509_add_ext(certificate.get(), extension, -1), 1);
        X509_EXTENSION_free(extension);
    }
    EXPECT_GT(X509_sign(certificate.get(), key, EVP_sha256()), 0);
    return certificate;
}

QByteArray pemOf(X509* certificate)
{
    const std::unique_ptr<BIO, Release> bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_X509(bio.get(), certificate), 1);
    return contents(bio.get());
}

QByteArray derOf(X509* certificate)
{
    unsigned char* der = nullptr;
    const int size = i2d_X509(certificate, &der);
    QByteArray bytes(reinterpret_cast<const char*>(der), size);
    OPENSSL_free(der);
    return bytes;
}

QByteArray requestFor(EVP_PKEY* key, EVP_PKEY* signer)
{
    const std::unique_ptr<X509_REQ, Release> request(X509_REQ_new());
    EXPECT_EQ(X509_REQ_set_pubkey(request.get(), key), 1);
    EXPECT_GT(X509_REQ_sign(request.get(), signer, EVP_sha256()), 0);
    const std::unique_ptr<BIO, Release> bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_X509_REQ(bio.get(), request.get()), 1);
    return contents(bio.get());
}

}  // namespace hosts
