// Owning pointers to libcrypto's objects, and the one way to read its failures.

#ifndef TARVELOQT_CARDLIBS_X509_POINTERS_H
#define TARVELOQT_CARDLIBS_X509_POINTERS_H

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ecdsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace cardlibs::x509 {

template <auto release>
struct Releaser {
    template <typename Object>
    void operator()(Object* object) const
    {
        release(object);
    }
};

template <typename Object, auto release>
using Pointer = std::unique_ptr<Object, Releaser<release>>;

using X509Pointer = Pointer<X509, X509_free>;
using RequestPointer = Pointer<X509_REQ, X509_REQ_free>;
using NamePointer = Pointer<X509_NAME, X509_NAME_free>;
using KeyPointer = Pointer<EVP_PKEY, EVP_PKEY_free>;
using KeyContextPointer = Pointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using DigestContextPointer = Pointer<EVP_MD_CTX, EVP_MD_CTX_free>;
using BioPointer = Pointer<BIO, BIO_free_all>;
using NumberPointer = Pointer<BIGNUM, BN_free>;
using Pkcs7Pointer = Pointer<PKCS7, PKCS7_free>;
using EcSignaturePointer = Pointer<ECDSA_SIG, ECDSA_SIG_free>;

// libcrypto queues what went wrong; what nobody asks for must not be taken for a later failure.
struct ErrorQueueGuard {
    ErrorQueueGuard() = default;
    ErrorQueueGuard(const ErrorQueueGuard&) = delete;
    ErrorQueueGuard& operator=(const ErrorQueueGuard&) = delete;
    ~ErrorQueueGuard() { ERR_clear_error(); }
};

}  // namespace cardlibs::x509

#endif
