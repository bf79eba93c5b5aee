#include "cardlibs/token/session.h"

#include "cardlibs/state/card_error.h"

#include <cstring>

namespace cardlibs::token {
namespace {

// Room for nearly every value, so that one call usually is enough.
std::size_t expectedSize(CK_ATTRIBUTE_TYPE type)
{
    switch (type) {
    case CKA_VALUE:
        return 8192;
    case CKA_SUBJECT:
        return 16384;
    case CKA_MODULUS:
        return 1024;
    default:
        return 256;
    }
}

bool answersPartly(CK_RV result)
{
    return result == CKR_OK || result == CKR_ATTRIBUTE_TYPE_INVALID ||
           result == CKR_ATTRIBUTE_SENSITIVE || result == CKR_BUFFER_TOO_SMALL;
}

// Which of several failures a call reports is up to the token: that an attribute is too large may
// be hidden by one that the object lacks. Asking again costs calls; certificates alone are likely
// to be larger than expected.
bool mayBeTooLarge(CK_ATTRIBUTE_TYPE type, CK_RV result)
{
    return result == CKR_BUFFER_TOO_SMALL || (result != CKR_OK && type == CKA_VALUE);
}

// C_Login takes a pointer to writable bytes but only reads them.
CK_UTF8CHAR* pinBytes(const char* pin)
{
    return reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(pin));
}

}  // namespace

Session::Session(Module& module, CK_SLOT_ID slot, Access access)
    : m_module(module)
    , m_slot(slot)
{
    const CK_FLAGS flags =
        CKF_SERIAL_SESSION | (access == Access::readWrite ? CKF_RW_SESSION : CK_FLAGS{0});
    m_module.call("C_OpenSession", &CK_FUNCTION_LIST::C_OpenSession, slot, flags,
                  static_cast<void*>(nullptr), static_cast<CK_NOTIFY>(nullptr), &m_handle);
    m_module.sessionOpened();
}

Session::~Session()
{
    // A token that is gone has closed the session itself, so failures here lose nothing.
    if (m_loggedIn)
        m_module.callForResult(&CK_FUNCTION_LIST::C_Logout, m_handle);
    m_module.callForResult(&CK_FUNCTION_LIST::C_CloseSession, m_handle);
    m_module.sessionClosed();
}

void Session::login(const char* pin)
{
    m_module.call("C_Login", &CK_FUNCTION_LIST::C_Login, m_handle, CK_USER_TYPE(CKU_USER),
                  pinBytes(pin), static_cast<CK_ULONG>(std::strlen(pin)));
    m_loggedIn = true;
}

std::vector<CK_OBJECT_HANDLE> Session::find(Template& sought)
{
    m_module.call("C_FindObjectsInit", &CK_FUNCTION_LIST::C_FindObjectsInit, m_handle,
                  sought.data(), sought.size());
    std::vector<CK_OBJECT_HANDLE> found;
    CK_RV result = CKR_OK;
    constexpr CK_ULONG atOnce = 256;
    while (true) {
        CK_OBJECT_HANDLE handles[atOnce] = {};
        CK_ULONG count = 0;
        result = m_module.callForResult(&CK_FUNCTION_LIST::C_FindObjects, m_handle, handles, atOnce,
                                        &count);
        if (result != CKR_OK)
            break;
        // Fewer than asked for tell nothing: a token may give them in portions.
        if (count == 0)
            break;
        found.insert(found.end(), handles, handles + count);
    }
    const CK_RV finalResult =
        m_module.callForResult(&CK_FUNCTION_LIST::C_FindObjectsFinal, m_handle);
    if (result != CKR_OK)
        m_module.fail("C_FindObjects", result);
    if (finalResult != CKR_OK)
        m_module.fail("C_FindObjectsFinal", finalResult);
    return found;
}

Attributes Session::read(CK_OBJECT_HANDLE object, const std::vector<CK_ATTRIBUTE_TYPE>& types)
{
    std::vector<Bytes> values;
    std::vector<CK_ATTRIBUTE> request;
    values.reserve(types.size());
    for (const CK_ATTRIBUTE_TYPE type : types) {
        values.emplace_back(expectedSize(type));
        request.push_back(
            {type, values.back().data(), static_cast<CK_ULONG>(values.back().size())});
    }
    const auto get = [&](CK_ATTRIBUTE* attributes, std::size_t count) {
        const CK_RV result =
            m_module.callForResult(&CK_FUNCTION_LIST::C_GetAttributeValue, m_handle, object,
                                   attributes, static_cast<CK_ULONG>(count));
        if (!answersPartly(result))
            m_module.fail("C_GetAttributeValue", result);
        return result;
    };
    const CK_RV result = get(request.data(), request.size());
    for (std::size_t i = 0; i < request.size(); ++i) {
        if (request[i].ulValueLen <= values[i].size() || !mayBeTooLarge(request[i].type, result))
            continue;
        request[i] = {request[i].type, nullptr, 0};
        get(&request[i], 1);
        if (request[i].ulValueLen == CK_UNAVAILABLE_INFORMATION)
            continue;
        values[i].resize(request[i].ulValueLen);
        request[i].pValue = values[i].data();
        get(&request[i], 1);
    }
    Attributes attributes;
    for (std::size_t i = 0; i < request.size(); ++i) {
        if (request[i].ulValueLen > values[i].size())
            continue;
        values[i].resize(request[i].ulValueLen);
        attributes.set(request[i].type, std::move(values[i]));
    }
    return attributes;
}

CK_OBJECT_HANDLE Session::create(Template& object)
{
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    m_module.call("C_CreateObject", &CK_FUNCTION_LIST::C_CreateObject, m_handle, object.data(),
                  object.size(), &handle);
    return handle;
}

void Session::destroy(CK_OBJECT_HANDLE object)
{
    m_module.call("C_DestroyObject", &CK_FUNCTION_LIST::C_DestroyObject, m_handle, object);
}

KeyPairHandles Session::generate(CK_MECHANISM_TYPE mechanism, Template& publicKey,
                                 Template& privateKey)
{
    CK_MECHANISM with = {mechanism, nullptr, 0};
    KeyPairHandles handles;
    m_module.call("C_GenerateKeyPair", &CK_FUNCTION_LIST::C_GenerateKeyPair, m_handle, &with,
                  publicKey.data(), publicKey.size(), privateKey.data(), privateKey.size(),
                  &handles.publicKey, &handles.privateKey);
    return handles;
}

Bytes Session::sign(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE mechanism, const Bytes& data,
                    const char* contextPin)
{
    CK_MECHANISM with = {mechanism, nullptr, 0};
    m_module.call("C_SignInit", &CK_FUNCTION_LIST::C_SignInit, m_handle, &with, key);
    if (contextPin != nullptr)
        m_module.call("C_Login", &CK_FUNCTION_LIST::C_Login, m_handle,
                      CK_USER_TYPE(CKU_CONTEXT_SPECIFIC), pinBytes(contextPin),
                      static_cast<CK_ULONG>(std::strlen(contextPin)));
    Bytes toSign = data;
    Bytes signature(1024);
    auto length = static_cast<CK_ULONG>(signature.size());
    m_module.call("C_Sign", &CK_FUNCTION_LIST::C_Sign, m_handle, toSign.data(),
                  static_cast<CK_ULONG>(toSign.size()), signature.data(), &length);
    signature.resize(length);
    return signature;
}

}  // namespace cardlibs::token
