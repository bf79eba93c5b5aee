#include "cardlibs/x509/public_key.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/param_build.h>

#include <algorithm>

namespace cardlibs::x509 {
namespace {

using ObjectPointer = Pointer<ASN1_OBJECT, ASN1_OBJECT_free>;
using OctetsPointer = Pointer<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using BuilderPointer = Pointer<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>;
using ParametersPointer = Pointer<OSSL_PARAM, OSSL_PARAM_free>;
using GroupPointer = Pointer<EC_GROUP, EC_GROUP_free>;
using PointPointer = Pointer<EC_POINT, EC_POINT_free>;

Bytes withoutLeadingZeros(const Bytes& number)
{
    const auto first = std::find_if(number.begin(), number.end(), [](auto b) { return b != 0; });
    return Bytes(first, number.end());
}

std::optional<Bytes> numberOf(const EVP_PKEY* key, const char* parameter)
{
    BIGNUM* raw = nullptr;
    if (EVP_PKEY_get_bn_param(key, parameter, &raw) != 1)
        return std::nullopt;
    const NumberPointer number(raw);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
    BN_bn2bin(number.get(), bytes.data());
    return bytes;
}

// The point in uncompressed form, if it is one of the curve.
std::optional<Bytes> uncompressed(int curve, const Bytes& encoded)
{
    const ErrorQueueGuard guard;
    const GroupPointer group(EC_GROUP_new_by_curve_name(curve));
    if (!group)
        return std::nullopt;
    const PointPointer point(EC_POINT_new(group.get()));
    if (!point ||
        EC_POINT_oct2point(group.get(), point.get(), encoded.data(), encoded.size(), nullptr) != 1)
        return std::nullopt;
    constexpr auto form = POINT_CONVERSION_UNCOMPRESSED;
    Bytes bytes(EC_POINT_point2oct(group.get(), point.get(), form, nullptr, 0, nullptr));
    if (bytes.empty() || EC_POINT_point2oct(group.get(), point.get(), form, bytes.data(),
                                            bytes.size(), nullptr) != bytes.size())
        return std::nullopt;
    return bytes;
}

std::optional<PublicKey> ecKey(int curve, const Bytes& encodedPoint)
{
    std::optional<Bytes> point = uncompressed(curve, encodedPoint);
    if (!point)
        return std::nullopt;
    PublicKey key;
    key.algorithm = PublicKey::Algorithm::ec;
    key.curve = curve;
    key.point = std::move(*point);
    return key;
}

template <typename Value>
Bytes derOf(const Value* value, int (*encode)(const Value*, unsigned char**))
{
    const ErrorQueueGuard guard;
    unsigned char* raw = nullptr;
    const int length = value == nullptr ? 0 : encode(value, &raw);
    if (length <= 0)
        return {};
    Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

KeyPointer keyFromData(const char* algorithm, OSSL_PARAM_BLD* builder)
{
    const ParametersPointer parameters(OSSL_PARAM_BLD_to_param(builder));
    const KeyContextPointer context(EVP_PKEY_CTX_new_from_name(nullptr, algorithm, nullptr));
    EVP_PKEY* key = nullptr;
    if (!parameters || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, parameters.get()) != 1)
        return nullptr;
    return KeyPointer(key);
}

}  // namespace

bool PublicKey::operator==(const PublicKey& other) const
{
    return algorithm == other.algorithm && modulus == other.modulus && exponent == other.exponent &&
           curve == other.curve && point == other.point;
}

unsigned long PublicKey::bits() const
{
    if (algorithm == Algorithm::rsa) {
        if (modulus.empty())
            return 0;
        unsigned long count = (modulus.size() - 1) * 8;
        for (unsigned top = modulus.front(); top != 0; top >>= 1)
            ++count;
        return count;
    }
    const GroupPointer group(EC_GROUP_new_by_curve_name(curve));
    return group ? static_cast<unsigned long>(EC_GROUP_get_degree(group.get())) : 0;
}

std::optional<PublicKey> publicKeyOf(const EVP_PKEY* key)
{
    const ErrorQueueGuard guard;
    if (key == nullptr)
        return std::nullopt;
    if (EVP_PKEY_is_a(key, "RSA") == 1 || EVP_PKEY_is_a(key, "RSA-PSS") == 1) {
        const std::optional<Bytes> modulus = numberOf(key, OSSL_PKEY_PARAM_RSA_N);
        const std::optional<Bytes> exponent = numberOf(key, OSSL_PKEY_PARAM_RSA_E);
        if (!modulus || !exponent)
            return std::nullopt;
        return rsaPublicKey(*modulus, *exponent);
    }
    if (EVP_PKEY_is_a(key, "EC") != 1)
        return std::nullopt;
    char group[80] = {};
    std::size_t length = 0;
    if (EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group,
                                       &length) != 1)
        return std::nullopt;
    Bytes point(512);
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                        &length) != 1)
        return std::nullopt;
    point.resize(length);
    return ecKey(OBJ_txt2nid(group), point);
}

std::optional<PublicKey> rsaPublicKey(const Bytes& modulus, const Bytes& exponent)
{
    PublicKey key;
    key.modulus = withoutLeadingZeros(modulus);
    key.exponent = withoutLeadingZeros(exponent);
    if (key.modulus.empty() || key.exponent.empty())
        return std::nullopt;
    return key;
}

std::optional<PublicKey> ecPublicKey(const Bytes& parameters, const Bytes& point)
{
    const ErrorQueueGuard guard;
    const int curve = curveOf(parameters);
    if (curve == NID_undef || point.empty())
        return std::nullopt;
    const unsigned char* at = point.data();
    const OctetsPointer wrapped(
        d2i_ASN1_OCTET_STRING(nullptr, &at, static_cast<long>(point.size())));
    if (wrapped && at == point.data() + point.size()) {
        const unsigned char* inner = ASN1_STRING_get0_data(wrapped.get());
        const Bytes bare(inner, inner + ASN1_STRING_length(wrapped.get()));
        if (std::optional<PublicKey> key = ecKey(curve, bare))
            return key;
    }
    return ecKey(curve, point);
}

int curveOf(const Bytes& parameters)
{
    const ErrorQueueGuard guard;
    const unsigned char* at = parameters.data();
    const ObjectPointer object(d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(parameters.size())));
    if (!object || at != parameters.data() + parameters.size())
        return NID_undef;
    return OBJ_obj2nid(object.get());
}

Bytes curveParameters(int curve)
{
    const ASN1_OBJECT* object = OBJ_nid2obj(curve);
    Bytes der(static_cast<std::size_t>(std::max(0, i2d_ASN1_OBJECT(object, nullptr))));
    unsigned char* at = der.data();
    if (der.empty() || i2d_ASN1_OBJECT(object, &at) <= 0)
        return {};
    return der;
}

Bytes encodedKey(const PublicKey& key)
{
    return derOf<EVP_PKEY>(evpKey(key).get(), i2d_PublicKey);
}

Bytes subjectPublicKeyInfo(const PublicKey& key)
{
    return derOf<EVP_PKEY>(evpKey(key).get(), i2d_PUBKEY);
}

Bytes octetString(const Bytes& content)
{
    const OctetsPointer octets(ASN1_OCTET_STRING_new());
    if (!octets ||
        ASN1_OCTET_STRING_set(octets.get(), content.data(), static_cast<int>(content.size())) != 1)
        return {};
    return derOf<ASN1_OCTET_STRING>(octets.get(), i2d_ASN1_OCTET_STRING);
}

KeyPointer evpKey(const PublicKey& key)
{
    const ErrorQueueGuard guard;
    const BuilderPointer builder(OSSL_PARAM_BLD_new());
    if (!builder)
        return nullptr;
    if (key.algorithm == PublicKey::Algorithm::rsa) {
        const NumberPointer modulus(
            BN_bin2bn(key.modulus.data(), static_cast<int>(key.modulus.size()), nullptr));
        const NumberPointer exponent(
            BN_bin2bn(key.exponent.data(), static_cast<int>(key.exponent.size()), nullptr));
        if (!modulus || !exponent ||
            OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, modulus.get()) != 1 ||
            OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, exponent.get()) != 1)
            return nullptr;
        return keyFromData("RSA", builder.get());
    }
    if (OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME,
                                        OBJ_nid2sn(key.curve), 0) != 1 ||
        OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, key.point.data(),
                                         key.point.size()) != 1)
        return nullptr;
    return keyFromData("EC", builder.get());
}

}  // namespace cardlibs::x509
