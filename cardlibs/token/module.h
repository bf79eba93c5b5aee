// A PKCS#11 module (PKCS #11 v2.40), loaded once per process and called through one checked
// wrapper.

#ifndef TARVELOQT_CARDLIBS_TOKEN_MODULE_H
#define TARVELOQT_CARDLIBS_TOKEN_MODULE_H

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace cardlibs::token {

// How near the user PIN is to being locked. Tokens need not tell: notLow may mean that, too.
enum class PinTries { notLow, low, last, locked };

// The token's identity and state without PKCS#11's padding.
struct TokenInfo {
    std::string label;
    std::string manufacturer;
    std::string model;
    std::string serialNumber;
    CK_FLAGS flags = 0;
    // CK_UNAVAILABLE_INFORMATION where the token does not tell.
    CK_ULONG freePublicMemory = CK_UNAVAILABLE_INFORMATION;
    CK_ULONG freePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    CK_ULONG shortestPin = CK_UNAVAILABLE_INFORMATION;
    // Tokens without an upper bound may say 0.
    CK_ULONG longestPin = CK_UNAVAILABLE_INFORMATION;

    bool has(CK_FLAGS flag) const { return (flags & flag) != 0; }
    // The user has a PIN, and has made it their own where the token wants that.
    bool isActivated() const;
    PinTries pinTries() const;

    // To be asked before every login, because each refused one costs one of a few tries. Throws
    // CardError when the token tells that this PIN, NUL-terminated, cannot be the right one
    // (CKR_PIN_LEN_RANGE) or that none is taken (CKR_PIN_LOCKED, CKR_USER_PIN_NOT_INITIALIZED).
    void checkBeforeLogin(const char* pin) const;

private:
    bool couldHaveLength(std::size_t pinLength) const;
};

struct SlotInfo {
    std::string description;
    std::string manufacturer;
};

class Module {
public:
    // The module that a table entry names: a file (with a "/"), or a name that p11-kit knows.
    // Loaded at the first call and kept for the life of the process. Throws CardError.
    static Module& load(const std::string& name);

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // File name without its folder.
    const std::string& fileName() const { return m_fileName; }

    // Calls one function of the module; any result but CKR_OK is thrown as CardError with that
    // number. A result that tells of a token or session gone makes the next ensureInitialised start
    // the module afresh.
    template <typename Function, typename... Arguments>
    void call(const char* name, Function CK_FUNCTION_LIST::*function, Arguments... arguments)
    {
        const CK_RV result = (m_functions->*function)(arguments...);
        if (result != CKR_OK)
            fail(name, result);
    }

    // As call, but hands the result back; for calls where more than CKR_OK is an answer.
    template <typename Function, typename... Arguments>
    CK_RV callForResult(Function CK_FUNCTION_LIST::*function, Arguments... arguments)
    {
        const CK_RV result = (m_functions->*function)(arguments...);
        note(result);
        return result;
    }

    [[noreturn]] void fail(const char* function, CK_RV result);

    // Initialises the module when it is not, and again when the last failure asks for it.
    void ensureInitialised();

    // Finalises and initialises, so that tokens which came, went or were made elsewhere are seen.
    // Does nothing when sessions of ours are open or somebody else initialised the module. True
    // when it was done.
    bool reinitialise();

    // Slots with a token present. refresh: ask the module to look at its slots again.
    std::vector<CK_SLOT_ID> slotsWithToken(bool refresh);
    TokenInfo tokenInfo(CK_SLOT_ID slot);
    SlotInfo slotInfo(CK_SLOT_ID slot);
    std::vector<CK_MECHANISM_TYPE> mechanisms(CK_SLOT_ID slot);
    CK_MECHANISM_INFO mechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE mechanism);

    // For Session alone.
    void sessionOpened() { ++m_openSessions; }
    void sessionClosed() { --m_openSessions; }

private:
    Module(CK_FUNCTION_LIST* functions, std::string fileName);
    void note(CK_RV result);
    void initialise();

    CK_FUNCTION_LIST* m_functions;
    std::string m_fileName;
    int m_openSessions = 0;
    bool m_initialised = false;
    bool m_initialisedByUs = false;
    bool m_stale = false;
};

// Text of a fixed PKCS#11 field, without the blanks (or NULs) that pad it.
std::string unpadded(const unsigned char* field, std::size_t size);

}  // namespace cardlibs::token

#endif
