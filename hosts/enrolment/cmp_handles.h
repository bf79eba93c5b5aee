// Owners of the libcrypto objects that CMP needs beside those of openssl_object.h.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CMP_HANDLES_H
#define TARVELOQT_HOSTS_ENROLMENT_CMP_HANDLES_H

#include <openssl/asn1.h>
#include <openssl/cmp.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace enrolment {

struct CmpRelease {
    void operator()(OSSL_CMP_CTX* context) const { OSSL_CMP_CTX_free(context); }
    void operator()(OSSL_CMP_MSG* message) const { OSSL_CMP_MSG_free(message); }
    void operator()(OSSL_CMP_ITAV* item) const { OSSL_CMP_ITAV_free(item); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(ASN1_OCTET_STRING* octets) const { ASN1_OCTET_STRING_free(octets); }
    void operator()(ASN1_TYPE* any) const { ASN1_TYPE_free(any); }
    // With what is in it.
    void operator()(STACK_OF(X509) * certificates) const
    {
        sk_X509_pop_free(certificates, X509_free);
    }
    void operator()(STACK_OF(OSSL_CMP_ITAV) * items) const
    {
        sk_OSSL_CMP_ITAV_pop_free(items, OSSL_CMP_ITAV_free);
    }
};

template <typename Object>
using CmpHandle = std::unique_ptr<Object, CmpRelease>;

}  // namespace enrolment

#endif
