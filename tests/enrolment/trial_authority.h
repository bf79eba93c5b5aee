// A certification authority of the tests: keys, requests, and certificates that it really issues.

#ifndef TARVELOQT_TESTS_ENROLMENT_TRIAL_AUTHORITY_H
#define TARVELOQT_TESTS_ENROLMENT_TRIAL_AUTHORITY_H

#include "hosts/enrolment/openssl_object.h"

#include <QByteArray>

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <vector>

namespace trial {

struct KeyRelease {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyRelease>;
using Name = std::vector<std::pair<std::string, std::string>>;

// P-256.
Key newKey();
// PKCS#8; encrypted when there is a password.
QByteArray keyPem(EVP_PKEY* key, const char* password = nullptr);

// CN and serialNumber of the holder of every test who needs no other.
Name ada();

// PEM, signed by `signer`, by default by the key itself; extensions: lines of an OpenSSL
// configuration, for example "keyUsage=digitalSignature".
QByteArray requestPem(EVP_PKEY* key, const Name& subject = ada(),
                      const std::vector<std::string>& extensions = {}, EVP_PKEY* signer = nullptr);

struct Wish {
    Name subject = ada();
    long beginsInSeconds = -3600;
    long endsInSeconds = 365L * 24 * 3600;
    std::vector<std::string> extensions;
};

class Authority {
public:
    // Self-signed, or issued by another.
    explicit Authority(const std::string& name, const Authority* parent = nullptr);

    const QByteArray& der() const { return m_der; }
    QByteArray pem() const;

    // DER.
    QByteArray issue(EVP_PKEY* key, const Wish& wish = {}) const;
    // DER; subject and key of the request.
    QByteArray issueFor(const QByteArray& request) const;

private:
    Name m_name;
    Key m_key;
    QByteArray m_der;
};

QByteArray pemOf(const QByteArray& certificateDer);
// DER of a PKCS#7 that holds certificates and no signature.
QByteArray pkcs7Of(const std::vector<QByteArray>& certificatesDer);
QByteArray pkcs7PemOf(const std::vector<QByteArray>& certificatesDer);

}  // namespace trial

#endif
