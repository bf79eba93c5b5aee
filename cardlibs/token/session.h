// One PKCS#11 session with the token in one slot.

#ifndef TARVELOQT_CARDLIBS_TOKEN_SESSION_H
#define TARVELOQT_CARDLIBS_TOKEN_SESSION_H

#include "cardlibs/bytes.h"
#include "cardlibs/token/attributes.h"
#include "cardlibs/token/module.h"

#include <utility>
#include <vector>

namespace cardlibs::token {

enum class Access { readOnly, readWrite };

// Handles of a new key pair, valid until the session ends.
struct KeyPairHandles {
    CK_OBJECT_HANDLE publicKey = CK_INVALID_HANDLE;
    CK_OBJECT_HANDLE privateKey = CK_INVALID_HANDLE;
};

// Every function throws CardError with the module's number unless said otherwise.
class Session {
public:
    Session(Module& module, CK_SLOT_ID slot, Access access);
    // Logs out what login logged in and closes, whatever the module answers.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Module& module() { return m_module; }
    CK_SLOT_ID slot() const { return m_slot; }

    // One attempt with the PIN, NUL-terminated and never copied here.
    void login(const char* pin);

    // Every object that matches, all of them for an empty template.
    std::vector<CK_OBJECT_HANDLE> find(Template& sought);

    // One call for all the attributes, whichever of them the object has; two more for each value
    // that is larger than expected.
    Attributes read(CK_OBJECT_HANDLE object, const std::vector<CK_ATTRIBUTE_TYPE>& types);

    CK_OBJECT_HANDLE create(Template& object);
    void destroy(CK_OBJECT_HANDLE object);
    KeyPairHandles generate(CK_MECHANISM_TYPE mechanism, Template& publicKey, Template& privateKey);

    // Signs with the mechanism, which takes no parameters. contextPin: the PIN when the key wants
    // it before each use (CKA_ALWAYS_AUTHENTICATE), else null.
    Bytes sign(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE mechanism, const Bytes& data,
               const char* contextPin);

private:
    Module& m_module;
    CK_SLOT_ID m_slot;
    CK_SESSION_HANDLE m_handle = CK_INVALID_HANDLE;
    bool m_loggedIn = false;
};

}  // namespace cardlibs::token

#endif
