#include "hosts/console/issued_certificate.h"
#include "tests/support/printing.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

using namespace console;

namespace {

struct Release {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, Release>;

Key newKey()
{
    return Key(EVP_EC_gen("P-256"));
}

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

std::unique_ptr<X509, Release> certificateFrom(EVP_PKEY* key, const char* commonName,
                                               bool authority = false)
{
    std::unique_ptr<X509, Release> certificate(X509_new());
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

}  // namespace

TEST(ReadCertificates, pemAmongOtherText_isFound)
{
    const Key key = newKey();
    const QByteArray pem = pemOf(certificateFrom(key.get(), "Ada").get());
    const auto certificates = readCertificates("Issuing...\n" + pem + "done\n");
    ASSERT_EQ(certificates.size(), 1U);
    EXPECT_EQ(certificates[0].pem, pem);
    EXPECT_EQ(certificates[0].subject, QStringLiteral("CN=Ada"));
    EXPECT_EQ(certificates[0].issuer, QStringLiteral("CN=Castelvane Demo CA"));
    EXPECT_EQ(certificates[0].notAfter, QDate(2030, 1, 20));
    EXPECT_FALSE(certificates[0].isAuthority);
}

TEST(ReadCertificates, der_becomesPem)
{
    const Key key = newKey();
    const auto certificate = certificateFrom(key.get(), "Ada");
    const auto certificates = readCertificates(derOf(certificate.get()));
    ASSERT_EQ(certificates.size(), 1U);
    EXPECT_EQ(certificates[0].pem, pemOf(certificate.get()));
}

TEST(ReadCertificates, textWithoutCertificate_givesNone)
{
    const Key key = newKey();
    QByteArray damaged = pemOf(certificateFrom(key.get(), "Ada").get());
    damaged.replace(damaged.indexOf('\n') + 5, 8, "########");
    for (const QByteArray& text : {QByteArray(), QByteArray("no"), damaged}) {
        EXPECT_TRUE(readCertificates(text).empty());
    }
}

TEST(CertificateFor, chainInAnyOrder_theOneWithTheKeyIsChosen)
{
    const Key authority = newKey();
    const Key holder = newKey();
    const QByteArray chain = pemOf(certificateFrom(authority.get(), "CA", true).get()) +
                             pemOf(certificateFrom(holder.get(), "Ada").get());
    const auto certificates = readCertificates(chain);
    ASSERT_EQ(certificates.size(), 2U);
    EXPECT_TRUE(certificates[0].isAuthority);

    const auto publicKey = requestPublicKey(requestFor(holder.get(), holder.get()));
    ASSERT_TRUE(publicKey);
    const auto found = certificateFor(*publicKey, certificates);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->subject, QStringLiteral("CN=Ada"));

    const Key stranger = newKey();
    const auto strange = requestPublicKey(requestFor(stranger.get(), stranger.get()));
    ASSERT_TRUE(strange);
    EXPECT_FALSE(certificateFor(*strange, certificates));
}

TEST(RequestPublicKey, requestThatItsKeyDidNotSign_isRefused)
{
    const Key key = newKey();
    const Key other = newKey();
    EXPECT_TRUE(requestPublicKey(requestFor(key.get(), key.get())));
    EXPECT_FALSE(requestPublicKey(requestFor(key.get(), other.get())));
    EXPECT_FALSE(requestPublicKey("no request"));
    EXPECT_FALSE(requestPublicKey(QByteArray()));
}
