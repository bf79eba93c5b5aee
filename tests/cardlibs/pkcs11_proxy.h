// A PKCS#11 module that hands every call on to another one, counts them, and on demand answers as a
// card would that SoftHSM2 cannot play.
//
// The module behind it is the file that the environment variable PKCS11_PROXY_MODULE names. Tests
// load the proxy's file once more to get at proxyControl() of the same instance. Programs that run
// in other processes have their calls written to the file that PKCS11_PROXY_LOG names, one name a
// line; for them PKCS11_PROXY_SET_FLAGS and PKCS11_PROXY_CLEAR_FLAGS (hexadecimal) change the flags
// of initialised tokens, PKCS11_PROXY_SLOT_NAME is the description of their slots, and before the
// call of the number in PKCS11_PROXY_REMOVE the card is taken out of the reader.

#ifndef TARVELOQT_TESTS_CARDLIBS_PKCS11_PROXY_H
#define TARVELOQT_TESTS_CARDLIBS_PKCS11_PROXY_H

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace cardlibs_test {

enum class Fault {
    // The call is not made.
    instead,
    // The call is made and its answer lost.
    afterwards,
    // Neither this call nor any later one is made: the card is gone.
    fromHereOn,
    // The call is not made, and the card is back at once: what was open on it is closed.
    pulledAndBack,
};

struct ProxyControl {
    // Names of the calls since the last reset, C_Initialize and C_Finalize included.
    std::vector<std::string> calls;

    // The call, counted from 1, that goes wrong; 0 for none.
    std::size_t failingCall = 0;
    // When it is set, the call of this name that goes wrong is counted instead of all.
    std::string failingName;
    CK_RV failure = CKR_DEVICE_ERROR;
    Fault fault = Fault::instead;

    // Answers changed after the module behind gave them.
    std::function<void(CK_TOKEN_INFO&)> changeTokenInfo;
    // SoftHSM2 always has one slot with a token that is not initialised.
    std::function<void(CK_SLOT_INFO&, bool isInitialised)> changeSlotInfo;
    std::function<void(CK_MECHANISM_INFO&)> changeMechanismInfo;
    std::vector<CK_MECHANISM_TYPE> missingMechanisms;
    // Mechanisms that are listed, but refused by C_SignInit with CKR_MECHANISM_INVALID.
    std::vector<CK_MECHANISM_TYPE> brokenMechanisms;
    // Answer of every user login that says so, without asking the module behind.
    std::optional<CK_RV> loginAnswer;
    // The token sets CKA_ID of new keys itself.
    bool choosesIdentifiers = false;
    // How it does: from the modulus or the bare point. SHA-1 of it when this is not set.
    std::function<std::vector<unsigned char>(const std::vector<unsigned char>&)> deriveIdentifier;
    // CKA_ALWAYS_AUTHENTICATE is true for private keys; context-specific logins are counted and
    // answered with CKR_OK.
    bool wantsPinEachTime = false;
    // Private keys tell neither modulus nor point.
    bool hidesPublicParts = false;
    // No object has these.
    std::vector<CK_ATTRIBUTE_TYPE> lackingAttributes;
    // Longer data is refused by C_Sign with CKR_DATA_LEN_RANGE; 0 for any length.
    CK_ULONG longestToSign = 0;
    // The value of a certificate written meanwhile is read back wrong.
    bool corruptsReadBack = false;
    bool corruptsSignatures = false;
    // The most objects that one C_FindObjects gives, however many were asked for.
    std::optional<CK_ULONG> objectsAtOnce;
    // Called before each call, to change the world under way.
    std::function<void(const std::string& name)> before;

    std::size_t failuresPlayed = 0;

    std::size_t count(const std::string& name) const
    {
        return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), name));
    }
    // Forgets calls and everything that was asked for.
    void reset() { *this = ProxyControl(); }
};

}  // namespace cardlibs_test

extern "C" cardlibs_test::ProxyControl* proxyControl();

#endif
