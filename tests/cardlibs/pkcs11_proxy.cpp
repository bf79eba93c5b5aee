#pragma GCC visibility push(default)
#include "tests/cardlibs/pkcs11_proxy.h"

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list);
#pragma GCC visibility pop

#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace cardlibs_test {

namespace {

// For programs that run in other processes.
ProxyControl controlFromEnvironment()
{
    ProxyControl told;
    if (const char* number = std::getenv("PKCS11_PROXY_REMOVE")) {
        told.failingCall = std::strtoul(number, nullptr, 10);
        told.failure = CKR_DEVICE_REMOVED;
        told.fault = Fault::fromHereOn;
    }
    return told;
}

ProxyControl& control()
{
    static ProxyControl instance = controlFromEnvironment();
    return instance;
}

CK_FUNCTION_LIST* moduleBehind()
{
    static CK_FUNCTION_LIST* const list = []() -> CK_FUNCTION_LIST* {
        const char* file = std::getenv("PKCS11_PROXY_MODULE");
        void* library = file == nullptr ? nullptr : dlopen(file, RTLD_NOW | RTLD_LOCAL);
        auto* get =
            library == nullptr
                ? nullptr
                : reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
        CK_FUNCTION_LIST* functions = nullptr;
        if (get == nullptr || get(&functions) != CKR_OK)
            return nullptr;
        return functions;
    }();
    return list;
}

// C_GetFunctionList has refused when there is none.
CK_FUNCTION_LIST* behind()
{
    CK_FUNCTION_LIST* list = moduleBehind();
    if (list == nullptr)
        std::abort();
    return list;
}

void writeLog(const char* name)
{
    const char* file = std::getenv("PKCS11_PROXY_LOG");
    if (file == nullptr)
        return;
    const int log = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (log < 0)
        std::abort();
    const std::string line = std::string(name) + "\n";
    if (write(log, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        std::abort();
    close(log);
}

// What a test cannot do from outside: end the program between two certain calls.
void endProgramWhenTold()
{
    const char* number = std::getenv("PKCS11_PROXY_KILL");
    if (number == nullptr || control().calls.size() != std::strtoul(number, nullptr, 10))
        return;
    const char* signal = std::getenv("PKCS11_PROXY_SIGNAL");
    std::raise(signal == nullptr ? SIGKILL : std::atoi(signal));
}

// What is to become of the call that was just noted.
std::optional<Fault> faultNow(const char* name)
{
    ProxyControl& state = control();
    if (state.failingCall == 0)
        return std::nullopt;
    if (!state.failingName.empty() && state.failingName != name &&
        !(state.fault == Fault::fromHereOn && state.failuresPlayed > 0))
        return std::nullopt;
    const std::size_t reached =
        state.failingName.empty() ? state.calls.size() : state.count(state.failingName);
    const bool isNow = reached == state.failingCall ||
                       (state.fault == Fault::fromHereOn && reached > state.failingCall);
    if (!isNow)
        return std::nullopt;
    ++state.failuresPlayed;
    return state.fault;
}

// Answers do not matter: a module that is not started has nothing open.
void closeEverything()
{
    std::vector<CK_SLOT_ID> slots(16);
    CK_ULONG count = slots.size();
    if (behind()->C_GetSlotList(CK_TRUE, slots.data(), &count) != CKR_OK)
        return;
    slots.resize(count);
    for (const CK_SLOT_ID slot : slots)
        behind()->C_CloseAllSessions(slot);
}

template <typename Call>
CK_RV passed(const char* name, Call&& call)
{
    ProxyControl& state = control();
    if (state.before)
        state.before(name);
    state.calls.emplace_back(name);
    writeLog(name);
    endProgramWhenTold();
    const std::optional<Fault> fault = faultNow(name);
    if (fault == Fault::pulledAndBack)
        closeEverything();
    if (fault && fault != Fault::afterwards)
        return state.failure;
    const CK_RV result = call();
    return fault == Fault::afterwards ? state.failure : result;
}

bool has(const std::vector<CK_MECHANISM_TYPE>& list, CK_MECHANISM_TYPE mechanism)
{
    return std::find(list.begin(), list.end(), mechanism) != list.end();
}

// Every function that has nothing of its own.
template <auto member, const char* const& name, typename Function>
struct Wrapper;

template <auto member, const char* const& name, typename... Arguments>
struct Wrapper<member, name, CK_RV (*)(Arguments...)> {
    static CK_RV call(Arguments... arguments)
    {
        return passed(name, [&] { return (behind()->*member)(arguments...); });
    }
};

CK_FLAGS flagsFrom(const char* variable)
{
    const char* text = std::getenv(variable);
    return text == nullptr ? 0 : std::strtoul(text, nullptr, 16);
}

void changeAsTold(CK_TOKEN_INFO& info)
{
    if ((info.flags & CKF_TOKEN_INITIALIZED) == 0)
        return;
    info.flags |= flagsFrom("PKCS11_PROXY_SET_FLAGS");
    info.flags &= ~flagsFrom("PKCS11_PROXY_CLEAR_FLAGS");
}

void changeAsTold(CK_SLOT_INFO& info)
{
    const char* name = std::getenv("PKCS11_PROXY_SLOT_NAME");
    if (name == nullptr)
        return;
    std::memset(info.slotDescription, ' ', sizeof info.slotDescription);
    std::memcpy(info.slotDescription, name,
                std::min(std::strlen(name), sizeof info.slotDescription));
}

CK_RV getTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info)
{
    return passed("C_GetTokenInfo", [&] {
        const CK_RV result = behind()->C_GetTokenInfo(slot, info);
        if (result == CKR_OK)
            changeAsTold(*info);
        if (result == CKR_OK && control().changeTokenInfo)
            control().changeTokenInfo(*info);
        return result;
    });
}

CK_RV getSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO_PTR info)
{
    return passed("C_GetSlotInfo", [&] {
        const CK_RV result = behind()->C_GetSlotInfo(slot, info);
        if (result != CKR_OK)
            return result;
        CK_TOKEN_INFO token = {};
        const bool isInitialised = behind()->C_GetTokenInfo(slot, &token) == CKR_OK &&
                                   (token.flags & CKF_TOKEN_INITIALIZED) != 0;
        if (isInitialised)
            changeAsTold(*info);
        if (control().changeSlotInfo)
            control().changeSlotInfo(*info, isInitialised);
        return result;
    });
}

CK_RV getMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count)
{
    return passed("C_GetMechanismList", [&] {
        const CK_RV result = behind()->C_GetMechanismList(slot, list, count);
        if (result != CKR_OK || list == nullptr)
            return result;
        CK_MECHANISM_TYPE* end = std::remove_if(
            list, list + *count, [](auto type) { return has(control().missingMechanisms, type); });
        *count = static_cast<CK_ULONG>(end - list);
        for (const CK_MECHANISM_TYPE broken : control().brokenMechanisms)
            if (std::find(list, end, broken) == end) {
                *end++ = broken;
                ++*count;
            }
        return result;
    });
}

CK_RV getMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info)
{
    return passed("C_GetMechanismInfo", [&] {
        const CK_RV result = behind()->C_GetMechanismInfo(slot, type, info);
        if (result == CKR_OK && control().changeMechanismInfo)
            control().changeMechanismInfo(*info);
        return result;
    });
}

CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length)
{
    const bool isContextSpecific = user == CKU_CONTEXT_SPECIFIC;
    return passed(isContextSpecific ? "C_Login(context)" : "C_Login", [&] {
        if (isContextSpecific && control().wantsPinEachTime)
            return CK_RV(CKR_OK);
        if (!isContextSpecific && control().loginAnswer)
            return *control().loginAnswer;
        return behind()->C_Login(session, user, pin, length);
    });
}

CK_RV signInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key)
{
    return passed("C_SignInit", [&] {
        if (has(control().brokenMechanisms, mechanism->mechanism))
            return CK_RV(CKR_MECHANISM_INVALID);
        return behind()->C_SignInit(session, mechanism, key);
    });
}

CK_RV sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG size, CK_BYTE_PTR signature,
           CK_ULONG_PTR length)
{
    return passed("C_Sign", [&] {
        const CK_RV result = behind()->C_Sign(session, data, size, signature, length);
        const CK_ULONG longest = control().longestToSign;
        if (result == CKR_OK && longest != 0 && size > longest)
            return CK_RV(CKR_DATA_LEN_RANGE);
        if (result == CKR_OK && signature != nullptr && control().corruptsSignatures)
            signature[0] = static_cast<CK_BYTE>(signature[0] ^ 1);
        return result;
    });
}

bool isPrivateKey(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object)
{
    CK_OBJECT_CLASS objectClass = CKO_DATA;
    CK_ATTRIBUTE attribute = {CKA_CLASS, &objectClass, sizeof objectClass};
    return behind()->C_GetAttributeValue(session, object, &attribute, 1) == CKR_OK &&
           objectClass == CKO_PRIVATE_KEY;
}

CK_RV getAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE_PTR attributes, CK_ULONG count)
{
    return passed("C_GetAttributeValue", [&] {
        std::vector<CK_ULONG> room;
        for (CK_ULONG i = 0; i < count; ++i)
            room.push_back(attributes[i].ulValueLen);
        CK_RV result = behind()->C_GetAttributeValue(session, object, attributes, count);
        const bool isReadBack = control().corruptsReadBack && control().count("C_CreateObject") > 0;
        for (CK_ULONG i = 0; isReadBack && i < count; ++i)
            if (attributes[i].type == CKA_VALUE && attributes[i].pValue != nullptr)
                static_cast<CK_BYTE*>(attributes[i].pValue)[10] ^= 1;
        for (CK_ULONG i = 0; i < count; ++i)
            if (has(control().lackingAttributes, attributes[i].type)) {
                attributes[i].ulValueLen = CK_UNAVAILABLE_INFORMATION;
                result = CKR_ATTRIBUTE_TYPE_INVALID;
            }
        const bool changes = control().wantsPinEachTime || control().hidesPublicParts;
        if (!changes || !isPrivateKey(session, object))
            return result;
        for (CK_ULONG i = 0; i < count; ++i) {
            CK_ATTRIBUTE& attribute = attributes[i];
            if (control().wantsPinEachTime && attribute.type == CKA_ALWAYS_AUTHENTICATE &&
                attribute.pValue != nullptr && room[i] >= 1) {
                *static_cast<CK_BBOOL*>(attribute.pValue) = CK_TRUE;
                attribute.ulValueLen = 1;
            }
            const bool isPublicPart =
                attribute.type == CKA_MODULUS || attribute.type == CKA_PUBLIC_EXPONENT;
            if (control().hidesPublicParts && isPublicPart) {
                attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
                result = CKR_ATTRIBUTE_TYPE_INVALID;
            }
        }
        return result;
    });
}

CK_RV findObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG room,
                  CK_ULONG_PTR count)
{
    return passed("C_FindObjects", [&] {
        const CK_ULONG most = control().objectsAtOnce.value_or(room);
        return behind()->C_FindObjects(session, objects, std::min(room, most), count);
    });
}

// SHA-1 of the modulus or the point, as many cards choose it.
std::vector<unsigned char> chosenIdentifier(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE publicKey)
{
    std::vector<unsigned char> value(1024);
    for (const CK_ATTRIBUTE_TYPE type : {CKA_MODULUS, CKA_EC_POINT}) {
        CK_ATTRIBUTE attribute = {type, value.data(), static_cast<CK_ULONG>(value.size())};
        if (behind()->C_GetAttributeValue(session, publicKey, &attribute, 1) != CKR_OK)
            continue;
        // A point comes wrapped in an octet string with a header of two bytes.
        const std::size_t skip = type == CKA_EC_POINT ? 2 : 0;
        if (control().deriveIdentifier)
            return control().deriveIdentifier(std::vector<unsigned char>(
                value.begin() + static_cast<std::ptrdiff_t>(skip),
                value.begin() + static_cast<std::ptrdiff_t>(attribute.ulValueLen)));
        std::vector<unsigned char> digest(EVP_MAX_MD_SIZE);
        unsigned int length = 0;
        if (EVP_Digest(value.data() + skip, attribute.ulValueLen - skip, digest.data(), &length,
                       EVP_sha1(), nullptr) != 1)
            std::abort();
        digest.resize(length);
        return digest;
    }
    std::abort();
}

CK_RV generateKeyPair(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                      CK_ATTRIBUTE_PTR publicTemplate, CK_ULONG publicCount,
                      CK_ATTRIBUTE_PTR privateTemplate, CK_ULONG privateCount,
                      CK_OBJECT_HANDLE_PTR publicKey, CK_OBJECT_HANDLE_PTR privateKey)
{
    return passed("C_GenerateKeyPair", [&] {
        const CK_RV result =
            behind()->C_GenerateKeyPair(session, mechanism, publicTemplate, publicCount,
                                        privateTemplate, privateCount, publicKey, privateKey);
        if (result != CKR_OK || !control().choosesIdentifiers)
            return result;
        std::vector<unsigned char> id = chosenIdentifier(session, *publicKey);
        CK_ATTRIBUTE attribute = {CKA_ID, id.data(), static_cast<CK_ULONG>(id.size())};
        for (const CK_OBJECT_HANDLE key : {*publicKey, *privateKey})
            if (behind()->C_SetAttributeValue(session, key, &attribute, 1) != CKR_OK)
                std::abort();
        return result;
    });
}

CK_FUNCTION_LIST* functionList()
{
    static CK_FUNCTION_LIST list = {};
    if (list.C_Initialize != nullptr)
        return &list;
    list = *behind();
#define PROXY_WRAP(function)                                                                       \
    {                                                                                              \
        static const char* const name = #function;                                                 \
        list.function = &Wrapper<&CK_FUNCTION_LIST::function, name,                                \
                                 decltype(CK_FUNCTION_LIST::function)>::call;                      \
    }
    PROXY_WRAP(C_Initialize)
    PROXY_WRAP(C_Finalize)
    PROXY_WRAP(C_GetInfo)
    PROXY_WRAP(C_GetSlotList)
    PROXY_WRAP(C_OpenSession)
    PROXY_WRAP(C_CloseSession)
    PROXY_WRAP(C_CloseAllSessions)
    PROXY_WRAP(C_GetSessionInfo)
    PROXY_WRAP(C_Logout)
    PROXY_WRAP(C_CreateObject)
    PROXY_WRAP(C_CopyObject)
    PROXY_WRAP(C_DestroyObject)
    PROXY_WRAP(C_GetObjectSize)
    PROXY_WRAP(C_SetAttributeValue)
    PROXY_WRAP(C_FindObjectsInit)
    PROXY_WRAP(C_FindObjectsFinal)
    PROXY_WRAP(C_SignUpdate)
    PROXY_WRAP(C_SignFinal)
    PROXY_WRAP(C_VerifyInit)
    PROXY_WRAP(C_Verify)
    PROXY_WRAP(C_DigestInit)
    PROXY_WRAP(C_Digest)
    PROXY_WRAP(C_GenerateRandom)
    PROXY_WRAP(C_SeedRandom)
    PROXY_WRAP(C_WaitForSlotEvent)
#undef PROXY_WRAP
    list.C_GetFunctionList = &C_GetFunctionList;
    list.C_GetTokenInfo = &getTokenInfo;
    list.C_GetSlotInfo = &getSlotInfo;
    list.C_GetMechanismList = &getMechanismList;
    list.C_GetMechanismInfo = &getMechanismInfo;
    list.C_Login = &login;
    list.C_SignInit = &signInit;
    list.C_Sign = &sign;
    list.C_GetAttributeValue = &getAttributeValue;
    list.C_GenerateKeyPair = &generateKeyPair;
    list.C_FindObjects = &findObjects;
    return &list;
}

}  // namespace
}  // namespace cardlibs_test

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list)
{
    if (list == nullptr)
        return CKR_ARGUMENTS_BAD;
    if (cardlibs_test::moduleBehind() == nullptr)
        return CKR_GENERAL_ERROR;
    *list = cardlibs_test::functionList();
    return CKR_OK;
}

cardlibs_test::ProxyControl* proxyControl()
{
    return &cardlibs_test::control();
}
