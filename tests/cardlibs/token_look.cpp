#include "tests/cardlibs/token_look.h"

#include "cardlibs/x509/pointers.h"
#include "tests/cardlibs/card_fixture.h"
#include "tests/cardlibs/outside_tools.h"

#include <dlfcn.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace cardlibs_test {
namespace {

using cardlibs::Bytes;
using cardlibs::x509::BioPointer;
using cardlibs::x509::KeyPointer;
using cardlibs::x509::Pointer;
using cardlibs::x509::X509Pointer;

namespace fs = std::filesystem;

using SignaturePointer = Pointer<ECDSA_SIG, ECDSA_SIG_free>;
using ContextPointer = Pointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

// What is signed: the digest of some data, as it goes into ECDSA.
constexpr std::array<unsigned char, 32> digest = {0x17, 0x2A, 0x33, 0x44, 0x51, 0x66, 0x7F, 0x80};

// DigestInfo of a SHA-256 digest up to the digest itself (RFC 8017, 9.2, note 1).
constexpr std::array<unsigned char, 19> digestInfo = {0x30, 0x31, 0x30, 0x0D, 0x06, 0x09, 0x60,
                                                      0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                                      0x01, 0x05, 0x00, 0x04, 0x20};

// SoftHSM2 keeps its state once per loaded file; a file of its own leaves that of others alone.
CK_FUNCTION_LIST* loadModule()
{
    static const TemporaryFolder folder;
    const fs::path copy = folder.path() / "libsofthsm2.so";
    fs::copy_file(softhsmModule(), copy);
    void* library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    auto* get = library == nullptr
                    ? nullptr
                    : reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
    CK_FUNCTION_LIST* functions = nullptr;
    if (get == nullptr || get(&functions) != CKR_OK)
        throw std::runtime_error("cannot load SoftHSM2");
    return functions;
}

CK_FUNCTION_LIST* softhsm()
{
    static CK_FUNCTION_LIST* const functions = loadModule();
    return functions;
}

void require(CK_RV result, const char* what)
{
    if (result != CKR_OK)
        throw std::runtime_error(std::string(what) + " fails with " + std::to_string(result));
}

class Started {
public:
    Started() { require(softhsm()->C_Initialize(nullptr), "C_Initialize"); }
    ~Started() { softhsm()->C_Finalize(nullptr); }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;
};

CK_SLOT_ID slotOfToken()
{
    std::array<CK_SLOT_ID, 16> slots = {};
    CK_ULONG count = slots.size();
    require(softhsm()->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
    for (CK_ULONG i = 0; i < count; ++i) {
        CK_TOKEN_INFO info = {};
        require(softhsm()->C_GetTokenInfo(slots.at(i), &info), "C_GetTokenInfo");
        if ((info.flags & CKF_TOKEN_INITIALIZED) != 0)
            return slots.at(i);
    }
    throw std::runtime_error("there is no token");
}

Bytes attribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type)
{
    CK_ATTRIBUTE wanted = {type, nullptr, 0};
    require(softhsm()->C_GetAttributeValue(session, object, &wanted, 1), "C_GetAttributeValue");
    Bytes value(wanted.ulValueLen);
    wanted.pValue = value.data();
    require(softhsm()->C_GetAttributeValue(session, object, &wanted, 1), "C_GetAttributeValue");
    return value;
}

std::vector<CK_OBJECT_HANDLE> allObjects(CK_SESSION_HANDLE session)
{
    require(softhsm()->C_FindObjectsInit(session, nullptr, 0), "C_FindObjectsInit");
    std::vector<CK_OBJECT_HANDLE> found(256);
    CK_ULONG count = 0;
    require(softhsm()->C_FindObjects(session, found.data(), found.size(), &count), "C_FindObjects");
    require(softhsm()->C_FindObjectsFinal(session), "C_FindObjectsFinal");
    found.resize(count);
    return found;
}

CK_ULONG number(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type)
{
    CK_ULONG value = 0;
    const Bytes bytes = attribute(session, object, type);
    if (bytes.size() != sizeof value)
        throw std::runtime_error("an attribute is no number");
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

Bytes inDer(const Bytes& rawSignature)
{
    const auto half = static_cast<int>(rawSignature.size() / 2);
    const SignaturePointer parts(ECDSA_SIG_new());
    if (!parts || ECDSA_SIG_set0(parts.get(), BN_bin2bn(rawSignature.data(), half, nullptr),
                                 BN_bin2bn(rawSignature.data() + half, half, nullptr)) != 1)
        return {};
    unsigned char* raw = nullptr;
    const int length = i2d_ECDSA_SIG(parts.get(), &raw);
    Bytes der(raw, raw + std::max(length, 0));
    OPENSSL_free(raw);
    return der;
}

bool verifies(EVP_PKEY* key, bool isRsa, const Bytes& signature)
{
    const ContextPointer context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_verify_init(context.get()) != 1)
        return false;
    if (isRsa && (EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
                  EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1))
        return false;
    const Bytes der = isRsa ? signature : inDer(signature);
    return EVP_PKEY_verify(context.get(), der.data(), der.size(), digest.data(), digest.size()) ==
           1;
}

// True when the token's private key signs for the public key.
bool signsFor(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE privateKey, EVP_PKEY* publicKey)
{
    const bool isRsa = EVP_PKEY_get_base_id(publicKey) == EVP_PKEY_RSA;
    if (number(session, privateKey, CKA_KEY_TYPE) != (isRsa ? CKK_RSA : CKK_EC))
        return false;
    CK_MECHANISM mechanism = {isRsa ? CK_MECHANISM_TYPE(CKM_RSA_PKCS) : CKM_ECDSA, nullptr, 0};
    if (softhsm()->C_SignInit(session, &mechanism, privateKey) != CKR_OK)
        return false;
    Bytes data(digest.begin(), digest.end());
    if (isRsa)
        data.insert(data.begin(), digestInfo.begin(), digestInfo.end());
    Bytes signature(1024);
    CK_ULONG length = signature.size();
    require(softhsm()->C_Sign(session, data.data(), data.size(), signature.data(), &length),
            "C_Sign");
    signature.resize(length);
    return verifies(publicKey, isRsa, signature);
}

}  // namespace

bool TokenLook::holds(const Bytes& der) const
{
    return std::any_of(certificates.begin(), certificates.end(),
                       [&](const SeenCertificate& seen) { return seen.der == der; });
}

bool TokenLook::works(const Bytes& der) const
{
    return std::any_of(certificates.begin(), certificates.end(),
                       [&](const SeenCertificate& seen) { return seen.der == der && seen.works; });
}

TokenLook lookAtToken(const char* pin)
{
    const Started started;
    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    require(softhsm()->C_OpenSession(slotOfToken(), CKF_SERIAL_SESSION, nullptr, nullptr, &session),
            "C_OpenSession");
    require(softhsm()->C_Login(session, CKU_USER,
                               reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(pin)),
                               std::strlen(pin)),
            "C_Login");
    TokenLook look;
    std::vector<CK_OBJECT_HANDLE> privateKeys;
    for (const CK_OBJECT_HANDLE object : allObjects(session)) {
        ++look.objects;
        const CK_ULONG objectClass = number(session, object, CKA_CLASS);
        if (objectClass == CKO_PRIVATE_KEY)
            privateKeys.push_back(object);
        else if (objectClass == CKO_CERTIFICATE)
            look.certificates.push_back({attribute(session, object, CKA_VALUE), false});
    }
    for (SeenCertificate& seen : look.certificates) {
        const unsigned char* start = seen.der.data();
        const X509Pointer certificate(
            d2i_X509(nullptr, &start, static_cast<long>(seen.der.size())));
        EVP_PKEY* key = certificate ? X509_get0_pubkey(certificate.get()) : nullptr;
        seen.works = key != nullptr && std::any_of(privateKeys.begin(), privateKeys.end(),
                                                   [&](CK_OBJECT_HANDLE privateKey) {
                                                       return signsFor(session, privateKey, key);
                                                   });
    }
    return look;
}

ObjectFiles objectFiles(const fs::path& tokens)
{
    ObjectFiles files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(tokens))
        if (entry.path().extension() == ".object" && entry.path().filename() != "token.object")
            files[entry.path().filename()] = readText(entry.path());
    return files;
}

std::vector<std::string> changedFiles(const ObjectFiles& kept, const ObjectFiles& now)
{
    std::vector<std::string> changed;
    for (const auto& [name, content] : kept) {
        const auto found = now.find(name);
        if (found == now.end() || found->second != content)
            changed.push_back(name);
    }
    return changed;
}

ObjectFiles without(const ObjectFiles& all, const ObjectFiles& others)
{
    ObjectFiles rest = all;
    for (const auto& [name, content] : others)
        rest.erase(name);
    return rest;
}

Bytes certificateBytes(const std::string& pem)
{
    const BioPointer memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    const X509Pointer certificate(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr));
    unsigned char* raw = nullptr;
    const int length = certificate ? i2d_X509(certificate.get(), &raw) : 0;
    if (length <= 0)
        throw std::runtime_error("this is no certificate");
    Bytes der(raw, raw + length);
    OPENSSL_free(raw);
    return der;
}

}  // namespace cardlibs_test
