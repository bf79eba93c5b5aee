#include "cardlibs/x509/request.h"

namespace cardlibs::x509 {
namespace {

void freeExtensions(STACK_OF(X509_EXTENSION) * extensions)
{
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
}

using ExtensionsPointer = Pointer<STACK_OF(X509_EXTENSION), freeExtensions>;
using AlgorithmPointer = Pointer<X509_ALGOR, X509_ALGOR_free>;

bool setSubject(X509_REQ* request, const Bytes& subject)
{
    const unsigned char* at = subject.data();
    const NamePointer name(d2i_X509_NAME(nullptr, &at, static_cast<long>(subject.size())));
    return name && X509_REQ_set_subject_name(request, name.get()) == 1;
}

bool copyUsages(X509_REQ* request, const X509* certificate)
{
    const ExtensionsPointer extensions(sk_X509_EXTENSION_new_null());
    if (!extensions)
        return false;
    for (const int type : {NID_key_usage, NID_ext_key_usage}) {
        const int at = X509_get_ext_by_NID(certificate, type, -1);
        if (at < 0)
            continue;
        X509_EXTENSION* copy = X509_EXTENSION_dup(X509_get_ext(certificate, at));
        if (copy == nullptr || sk_X509_EXTENSION_push(extensions.get(), copy) == 0) {
            X509_EXTENSION_free(copy);
            return false;
        }
    }
    return sk_X509_EXTENSION_num(extensions.get()) == 0 ||
           X509_REQ_add_extensions(request, extensions.get()) == 1;
}

bool setAlgorithm(X509_REQ* request, const PublicKey& key)
{
    const bool isRsa = key.algorithm == PublicKey::Algorithm::rsa;
    const bool isSha384 = hashFor(key) == Hash::sha384;
    const int type = isRsa ? (isSha384 ? NID_sha384WithRSAEncryption : NID_sha256WithRSAEncryption)
                           : (isSha384 ? NID_ecdsa_with_SHA384 : NID_ecdsa_with_SHA256);
    const AlgorithmPointer algorithm(X509_ALGOR_new());
    // RFC 8017 wants NULL parameters with RSA, RFC 5758 none with ECDSA.
    return algorithm &&
           X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(type), isRsa ? V_ASN1_NULL : V_ASN1_UNDEF,
                           nullptr) == 1 &&
           X509_REQ_set1_signature_algo(request, algorithm.get()) == 1;
}

bool setSignature(X509_REQ* request, const Bytes& signature)
{
    ASN1_BIT_STRING* bits = ASN1_BIT_STRING_new();
    if (bits == nullptr || ASN1_BIT_STRING_set(bits, const_cast<unsigned char*>(signature.data()),
                                               static_cast<int>(signature.size())) != 1) {
        ASN1_BIT_STRING_free(bits);
        return false;
    }
    // Without this mark libcrypto drops zero bits at the end of the signature.
    bits->flags &= ~0x07L;
    bits->flags |= ASN1_STRING_FLAG_BITS_LEFT;
    X509_REQ_set0_signature(request, bits);
    return true;
}

std::string pemOf(const X509_REQ* request)
{
    const BioPointer memory(BIO_new(BIO_s_mem()));
    if (!memory || PEM_write_bio_X509_REQ(memory.get(), request) != 1)
        return {};
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

std::string buildRequest(const Bytes& subject, const PublicKey& key, const Certificate& renewed,
                         const Signer& signer)
{
    const ErrorQueueGuard guard;
    const RequestPointer request(X509_REQ_new());
    const KeyPointer evp = evpKey(key);
    if (!request || !evp || X509_REQ_set_version(request.get(), X509_REQ_VERSION_1) != 1 ||
        !setSubject(request.get(), subject) || X509_REQ_set_pubkey(request.get(), evp.get()) != 1 ||
        !copyUsages(request.get(), renewed.get()) || !setAlgorithm(request.get(), key))
        return {};
    unsigned char* raw = nullptr;
    const int length = i2d_re_X509_REQ_tbs(request.get(), &raw);
    if (length <= 0)
        return {};
    const Bytes toSign(raw, raw + length);
    OPENSSL_free(raw);
    if (!setSignature(request.get(), signer(toSign)) ||
        X509_REQ_verify(request.get(), evp.get()) != 1)
        return {};
    return pemOf(request.get());
}

}  // namespace cardlibs::x509
