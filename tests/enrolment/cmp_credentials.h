// Keys, certificates and requests for the CMP tests, made with libcrypto as they are needed.

#ifndef TARVELOQT_TESTS_ENROLMENT_CMP_CREDENTIALS_H
#define TARVELOQT_TESTS_ENROLMENT_CMP_CREDENTIALS_H

#include <QByteArray>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace cmp_tests {

struct CredentialRelease {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
};
using TestKey = std::unique_ptr<EVP_PKEY, CredentialRelease>;
using TestCertificate = std::unique_ptr<X509, CredentialRelease>;
using TestRequest = std::unique_ptr<X509_REQ, CredentialRelease>;

// A key and the certificate for it.
struct Credential {
    TestKey key;
    TestCertificate certificate;
};

enum class Use { authority, messageSigner, tlsServer };

// P-256.
TestKey newTestKey();
// issuer: nothing for a self-signed one. Valid from one day ago for daysLeft, which may be
// negative.
Credential newCredential(const char* commonName, Use use, const Credential* issuer = nullptr,
                         int daysLeft = 100);

// A certificate for the subject and public key of the request.
TestCertificate certificateFor(X509_NAME* subject, EVP_PKEY* publicKey, const Credential& issuer);

// For a holder with a serialNumber attribute.
TestRequest newRequest(EVP_PKEY* key, const char* holder = "TINIT-RSSMRA80A01H501U");
QByteArray pemOf(X509_REQ* request);
QByteArray pemOf(X509* certificate);
QByteArray pemOf(EVP_PKEY* key);
QByteArray derOf(X509* certificate);

}  // namespace cmp_tests

#endif
