#include "tools/softcard/card_token.h"

#include "cardlibs/readers/reader_directory.h"

#include <optional>
#include <stdexcept>

namespace softcard {
namespace {

using cardlibs::token::Module;

constexpr char softwareModule[] = "softhsm2";
// With two of 65,536 serial numbers unwanted, more draws than this mean that something else is
// wrong.
constexpr int mostDraws = 20;

// PKCS #11 takes pointers to writable bytes where it only reads.
CK_UTF8CHAR* writable(const char* text)
{
    return reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(text));
}

std::optional<CK_SLOT_ID> slotWith(Module& module, bool initialisedToken)
{
    for (const CK_SLOT_ID slot : module.slotsWithToken(true))
        if (module.tokenInfo(slot).has(CKF_TOKEN_INITIALIZED) == initialisedToken)
            return slot;
    return std::nullopt;
}

// PKCS #11 wants the label padded with blanks to 32 bytes.
void initialiseToken(Module& module, const std::string& label, const Secret& securityOfficerPin)
{
    const std::optional<CK_SLOT_ID> free = slotWith(module, false);
    if (!free)
        throw std::runtime_error("SoftHSM2 offers no free slot");
    std::string padded = label.substr(0, 32);
    padded.resize(32, ' ');
    module.call("C_InitToken", &CK_FUNCTION_LIST::C_InitToken, *free,
                writable(securityOfficerPin.text()),
                static_cast<CK_ULONG>(securityOfficerPin.size()), writable(padded.c_str()));
    // The token moves to a slot of its own, which shows after a new start.
    module.reinitialise();
}

void initialisePin(Module& module, CK_SLOT_ID slot, const Secret& pin,
                   const Secret& securityOfficerPin)
{
    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    module.call("C_OpenSession", &CK_FUNCTION_LIST::C_OpenSession, slot,
                CK_FLAGS(CKF_SERIAL_SESSION | CKF_RW_SESSION), static_cast<void*>(nullptr),
                static_cast<CK_NOTIFY>(nullptr), &session);
    module.call("C_Login", &CK_FUNCTION_LIST::C_Login, session, CK_USER_TYPE(CKU_SO),
                writable(securityOfficerPin.text()),
                static_cast<CK_ULONG>(securityOfficerPin.size()));
    module.call("C_InitPIN", &CK_FUNCTION_LIST::C_InitPIN, session, writable(pin.text()),
                static_cast<CK_ULONG>(pin.size()));
    module.call("C_Logout", &CK_FUNCTION_LIST::C_Logout, session);
    module.call("C_CloseSession", &CK_FUNCTION_LIST::C_CloseSession, session);
}

}  // namespace

bool isRetiredSerialNumber(const std::string& serialNumber)
{
    return serialNumber.rfind("1201", 0) == 0 || serialNumber.rfind("1202", 0) == 0;
}

Module& startModule()
{
    Module& module = Module::load(softwareModule);
    module.reinitialise();
    return module;
}

CK_SLOT_ID makeToken(const CardFolder& folder, const std::string& label, const Secret& pin,
                     const Secret& securityOfficerPin)
{
    Module& module = startModule();
    for (int draw = 0; draw < mostDraws; ++draw) {
        initialiseToken(module, label, securityOfficerPin);
        const std::optional<CK_SLOT_ID> slot = slotWith(module, true);
        if (!slot)
            throw std::runtime_error("SoftHSM2 does not show the token it made");
        if (!isRetiredSerialNumber(module.tokenInfo(*slot).serialNumber)) {
            initialisePin(module, *slot, pin, securityOfficerPin);
            return *slot;
        }
        // SoftHSM2 chooses serial numbers itself, so the token is thrown away for another.
        std::filesystem::remove_all(folder.tokens());
        folder.prepare();
        module.reinitialise();
    }
    throw std::runtime_error("SoftHSM2 keeps choosing serial numbers of retired cards");
}

std::vector<std::string> cardReaders(const CardFolder& folder)
{
    folder.useConfiguration();
    Module& module = startModule();
    std::vector<std::string> names;
    for (const CK_SLOT_ID slot : module.slotsWithToken(true)) {
        const cardlibs::token::TokenInfo info = module.tokenInfo(slot);
        if (info.has(CKF_TOKEN_INITIALIZED))
            names.push_back(cardlibs::readers::softwareReaderName(info));
    }
    return names;
}

}  // namespace softcard
