// Keys, requests and certificates for the tests, made with libcrypto.

#ifndef TARVELOQT_TESTS_HOSTS_CERTIFICATE_MAKER_H
#define TARVELOQT_TESTS_HOSTS_CERTIFICATE_MAKER_H

#include <QByteArray>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace hosts {

struct Release {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, Release>;
using Certificate = std::unique_ptr<X509, Release>;

// P-256.
Key newKey();

// Valid from 2026-01-01 to 2030-01-20, serial number 7, issuer CN=Castelvane Demo CA, signed by the
// key itself.
Certificate certificateFrom(EVP_PKEY* key, const char* commonName, bool authority = false);

QByteArray pemOf(X509* certificate);
QByteArray derOf(X509* certificate);

// PEM of a request for `key`, signed by `signer`.
QByteArray requestFor(EVP_PKEY* key, EVP_PKEY* signer);

}  // namespace hosts

#endif
