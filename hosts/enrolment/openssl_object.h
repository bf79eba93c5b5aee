// OpenSSL's objects, released by themselves.

#ifndef TARVELOQT_HOSTS_ENROLMENT_OPENSSL_OBJECT_H
#define TARVELOQT_HOSTS_ENROLMENT_OPENSSL_OBJECT_H

#include <openssl/bio.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <memory>

namespace enrolment {

struct OpensslRelease {
    void operator()(BIO* object) const { BIO_free(object); }
    void operator()(PKCS7* object) const { PKCS7_free(object); }
    void operator()(X509* object) const { X509_free(object); }
    void operator()(X509_REQ* object) const { X509_REQ_free(object); }
    void operator()(X509_STORE* object) const { X509_STORE_free(object); }
    void operator()(X509_STORE_CTX* object) const { X509_STORE_CTX_free(object); }
    // The list alone; what is in it belongs to somebody else.
    void operator()(STACK_OF(X509) * object) const { sk_X509_free(object); }
};

template <typename Object>
using Owned = std::unique_ptr<Object, OpensslRelease>;

}  // namespace enrolment

#endif
