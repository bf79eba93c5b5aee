#include "cardlibs/x509/signing.h"

namespace cardlibs::x509 {
namespace {

const EVP_MD* digestAlgorithm(Hash hash)
{
    return hash == Hash::sha384 ? EVP_sha384() : EVP_sha256();
}

}  // namespace

Hash hashFor(const PublicKey& key)
{
    return key.algorithm == PublicKey::Algorithm::ec && key.bits() > 256 ? Hash::sha384
                                                                         : Hash::sha256;
}

Bytes digestOf(Hash hash, const Bytes& data)
{
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, digestAlgorithm(hash),
                   nullptr) != 1)
        return {};
    digest.resize(length);
    return digest;
}

Bytes digestInfo(Hash hash, const Bytes& data)
{
    // SEQUENCE { SEQUENCE { id-sha256 or id-sha384, NULL }, OCTET STRING }, up to the octets.
    static const Bytes sha256Prefix = {0x30, 0x31, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                       0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
    static const Bytes sha384Prefix = {0x30, 0x41, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                       0x65, 0x03, 0x04, 0x02, 0x02, 0x05, 0x00, 0x04, 0x30};
    Bytes info = hash == Hash::sha384 ? sha384Prefix : sha256Prefix;
    const Bytes digest = digestOf(hash, data);
    info.insert(info.end(), digest.begin(), digest.end());
    return info;
}

Bytes derEcSignature(const Bytes& halves)
{
    const ErrorQueueGuard guard;
    if (halves.empty() || halves.size() % 2 != 0)
        return {};
    const int half = static_cast<int>(halves.size() / 2);
    NumberPointer r(BN_bin2bn(halves.data(), half, nullptr));
    NumberPointer s(BN_bin2bn(halves.data() + half, half, nullptr));
    const EcSignaturePointer signature(ECDSA_SIG_new());
    if (!r || !s || !signature || ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1)
        return {};
    // The signature owns both from here on.
    static_cast<void>(r.release());
    static_cast<void>(s.release());
    unsigned char* raw = nullptr;
    const int length = i2d_ECDSA_SIG(signature.get(), &raw);
    if (length <= 0)
        return {};
    Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

bool verifies(const PublicKey& key, Hash hash, const Bytes& data, const Bytes& signature)
{
    const ErrorQueueGuard guard;
    const KeyPointer evp = evpKey(key);
    const DigestContextPointer context(EVP_MD_CTX_new());
    return evp && context &&
           EVP_DigestVerifyInit(context.get(), nullptr, digestAlgorithm(hash), nullptr,
                                evp.get()) == 1 &&
           EVP_DigestVerify(context.get(), signature.data(), signature.size(), data.data(),
                            data.size()) == 1;
}

}  // namespace cardlibs::x509
