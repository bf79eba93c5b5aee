#include "cardlibs/token/module.h"

#include "cardlibs/state/card_error.h"
#include "cardlibs/token/module_file.h"

#include <p11-kit/p11-kit.h>

#include <cstring>
#include <map>
#include <memory>

namespace cardlibs::token {
namespace {

using state::CardError;

// After these the module's picture of slots, tokens or sessions is not to be trusted.
bool tellsOfLostToken(CK_RV result)
{
    switch (result) {
    case CKR_SLOT_ID_INVALID:
    case CKR_GENERAL_ERROR:
    case CKR_FUNCTION_FAILED:
    case CKR_DEVICE_ERROR:
    case CKR_DEVICE_REMOVED:
    case CKR_SESSION_CLOSED:
    case CKR_SESSION_HANDLE_INVALID:
    case CKR_TOKEN_NOT_PRESENT:
    case CKR_TOKEN_NOT_RECOGNIZED:
        return true;
    default:
        return false;
    }
}

template <std::size_t size>
std::string unpaddedField(const unsigned char (&field)[size])
{
    return unpadded(field, size);
}

}  // namespace

std::string unpadded(const unsigned char* field, std::size_t size)
{
    std::string text(reinterpret_cast<const char*>(field), size);
    if (const std::size_t end = text.find('\0'); end != std::string::npos)
        text.resize(end);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

bool TokenInfo::isActivated() const
{
    return has(CKF_USER_PIN_INITIALIZED) && !has(CKF_USER_PIN_TO_BE_CHANGED);
}

PinTries TokenInfo::pinTries() const
{
    // Tokens set several of these at once; the worst counts.
    if (has(CKF_USER_PIN_LOCKED))
        return PinTries::locked;
    if (has(CKF_USER_PIN_FINAL_TRY))
        return PinTries::last;
    return has(CKF_USER_PIN_COUNT_LOW) ? PinTries::low : PinTries::notLow;
}

bool TokenInfo::couldHaveLength(std::size_t pinLength) const
{
    if (pinLength == 0)
        return false;
    const bool tellsShortest = shortestPin != CK_UNAVAILABLE_INFORMATION;
    const bool tellsLongest = longestPin != CK_UNAVAILABLE_INFORMATION && longestPin != 0;
    // Bounds that no PIN keeps are not to be believed.
    if (tellsShortest && tellsLongest && longestPin < shortestPin)
        return true;
    return (!tellsShortest || pinLength >= shortestPin) &&
           (!tellsLongest || pinLength <= longestPin);
}

void TokenInfo::checkBeforeLogin(const char* pin) const
{
    if (!couldHaveLength(std::strlen(pin)))
        throw CardError(CKR_PIN_LEN_RANGE);
    if (has(CKF_USER_PIN_LOCKED))
        throw CardError(CKR_PIN_LOCKED);
    if (!has(CKF_USER_PIN_INITIALIZED))
        throw CardError(CKR_USER_PIN_NOT_INITIALIZED);
}

Module& Module::load(const std::string& name)
{
    // Never released, not even when the process ends: modules do not all survive being unloaded,
    // and the process may use them still.
    static auto& loaded = *new std::map<std::string, std::unique_ptr<Module>>;

    const std::string file = moduleFile(name);
    auto found = loaded.find(file);
    if (found == loaded.end()) {
        CK_FUNCTION_LIST* functions = p11_kit_module_load(file.c_str(), P11_KIT_MODULE_UNMANAGED);
        if (functions == nullptr)
            throw CardError(state::fault::moduleNotLoaded, file);
        std::string fileName = file.substr(file.rfind('/') + 1);
        found =
            loaded
                .emplace(file, std::unique_ptr<Module>(new Module(functions, std::move(fileName))))
                .first;
    }
    return *found->second;
}

Module::Module(CK_FUNCTION_LIST* functions, std::string fileName)
    : m_functions(functions)
    , m_fileName(std::move(fileName))
{
}

void Module::fail(const char* function, CK_RV result)
{
    note(result);
    throw CardError(result, function);
}

void Module::note(CK_RV result)
{
    if (tellsOfLostToken(result))
        m_stale = true;
    if (result == CKR_CRYPTOKI_NOT_INITIALIZED)
        m_initialised = false;
}

void Module::initialise()
{
    CK_C_INITIALIZE_ARGS arguments = {};
    arguments.flags = CKF_OS_LOCKING_OK;
    const CK_RV result = m_functions->C_Initialize(&arguments);
    if (result != CKR_OK && result != CKR_CRYPTOKI_ALREADY_INITIALIZED)
        fail("C_Initialize", result);
    m_initialised = true;
    m_initialisedByUs = result == CKR_OK;
    m_stale = false;
}

void Module::ensureInitialised()
{
    if (!m_initialised)
        initialise();
    else if (m_stale)
        reinitialise();
}

bool Module::reinitialise()
{
    if (m_openSessions != 0 || (m_initialised && !m_initialisedByUs))
        return false;
    if (m_initialised) {
        const CK_RV result = m_functions->C_Finalize(nullptr);
        // A module that could not be stopped is still ours to stop the next time.
        if (result != CKR_OK && result != CKR_CRYPTOKI_NOT_INITIALIZED) {
            m_stale = true;
            fail("C_Finalize", result);
        }
        m_initialised = false;
    }
    initialise();
    return true;
}

std::vector<CK_SLOT_ID> Module::slotsWithToken(bool refresh)
{
    // The set of slots may change only at a call without a buffer (PKCS #11 v2.40, C_GetSlotList).
    std::vector<CK_SLOT_ID> slots(64);
    for (int attempt = 0; attempt < 3; ++attempt) {
        auto count = static_cast<CK_ULONG>(slots.size());
        if (refresh || attempt > 0) {
            call("C_GetSlotList", &CK_FUNCTION_LIST::C_GetSlotList, CK_BBOOL(CK_TRUE),
                 static_cast<CK_SLOT_ID_PTR>(nullptr), &count);
            slots.resize(count + 8);
            count = static_cast<CK_ULONG>(slots.size());
        }
        const CK_RV result = callForResult(&CK_FUNCTION_LIST::C_GetSlotList, CK_BBOOL(CK_TRUE),
                                           slots.data(), &count);
        if (result == CKR_OK) {
            slots.resize(count);
            return slots;
        }
        if (result != CKR_BUFFER_TOO_SMALL)
            fail("C_GetSlotList", result);
    }
    fail("C_GetSlotList", CKR_BUFFER_TOO_SMALL);
}

TokenInfo Module::tokenInfo(CK_SLOT_ID slot)
{
    CK_TOKEN_INFO raw = {};
    call("C_GetTokenInfo", &CK_FUNCTION_LIST::C_GetTokenInfo, slot, &raw);
    TokenInfo info;
    info.label = unpaddedField(raw.label);
    info.manufacturer = unpaddedField(raw.manufacturerID);
    info.model = unpaddedField(raw.model);
    info.serialNumber = unpaddedField(raw.serialNumber);
    info.flags = raw.flags;
    info.freePublicMemory = raw.ulFreePublicMemory;
    info.freePrivateMemory = raw.ulFreePrivateMemory;
    info.shortestPin = raw.ulMinPinLen;
    info.longestPin = raw.ulMaxPinLen;
    return info;
}

SlotInfo Module::slotInfo(CK_SLOT_ID slot)
{
    CK_SLOT_INFO raw = {};
    call("C_GetSlotInfo", &CK_FUNCTION_LIST::C_GetSlotInfo, slot, &raw);
    return {unpaddedField(raw.slotDescription), unpaddedField(raw.manufacturerID)};
}

std::vector<CK_MECHANISM_TYPE> Module::mechanisms(CK_SLOT_ID slot)
{
    std::vector<CK_MECHANISM_TYPE> list(256);
    auto count = static_cast<CK_ULONG>(list.size());
    CK_RV result = callForResult(&CK_FUNCTION_LIST::C_GetMechanismList, slot, list.data(), &count);
    if (result == CKR_BUFFER_TOO_SMALL) {
        list.resize(count);
        result = callForResult(&CK_FUNCTION_LIST::C_GetMechanismList, slot, list.data(), &count);
    }
    if (result != CKR_OK)
        fail("C_GetMechanismList", result);
    list.resize(count);
    return list;
}

CK_MECHANISM_INFO Module::mechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE mechanism)
{
    CK_MECHANISM_INFO info = {};
    call("C_GetMechanismInfo", &CK_FUNCTION_LIST::C_GetMechanismInfo, slot, mechanism, &info);
    return info;
}

}  // namespace cardlibs::token
