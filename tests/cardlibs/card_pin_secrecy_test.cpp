// Where copies of the PIN may not be: in memory while the card is asked, and once a call has ended.

#include "imports/molvane.h"
#include "imports/tarvelo.h"
#include "tests/cardlibs/proxy_fixture.h"
#include "tests/support/memory_scan.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace cardlibs_test {
namespace {

// A PIN that the caller holds, and nobody else in the process. Long, because an allocator may write
// over the first bytes of what is freed.
class HeldPin {
public:
    HeldPin()
        : m_secret(digits)
    {
        const QString text = m_secret.text();
        for (int i = 0; i < text.size(); ++i)
            m_bytes[static_cast<std::size_t>(i)] = text[i].toLatin1();
    }
    ~HeldPin() { wipe(); }
    HeldPin(const HeldPin&) = delete;
    HeldPin& operator=(const HeldPin&) = delete;

    char* bytes() { return m_bytes.data(); }
    void wipe() { explicit_bzero(m_bytes.data(), m_bytes.size()); }
    int copies() const { return m_secret.copiesInMemory(); }

    static constexpr std::size_t digits = 40;

private:
    support::Secret m_secret;
    std::array<char, digits + 1> m_bytes{};
};

// The buffers that an inventory fills.
class Stores {
public:
    Stores()
    {
        for (std::size_t i = 0; i < m_buffers.size(); ++i)
            m_elements[i] = m_buffers[i].data();
    }
    char** cns() { return &m_elements[0]; }
    char** pra() { return &m_elements[2]; }
    char** aut() { return &m_elements[7]; }

private:
    static constexpr std::size_t elements = 2 + 5 + 5;
    std::array<std::array<char, 4096>, elements> m_buffers{};
    std::array<char*, elements> m_elements{};
};

class CardPinSecrecy : public ProxyFixture {
protected:
    ~CardPinSecrecy() override { mvFinalize(); }

    // Changes the card's PIN to the held one.
    void setPin(HeldPin& pin)
    {
        onCard([&](cardlibs::token::Session& session) {
            std::string old = cardPin;
            CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
            session.module().call("C_OpenSession", &CK_FUNCTION_LIST::C_OpenSession, session.slot(),
                                  CK_FLAGS(CKF_SERIAL_SESSION | CKF_RW_SESSION),
                                  static_cast<void*>(nullptr), static_cast<CK_NOTIFY>(nullptr),
                                  &handle);
            session.module().call("C_SetPIN", &CK_FUNCTION_LIST::C_SetPIN, handle,
                                  reinterpret_cast<CK_UTF8CHAR*>(old.data()),
                                  static_cast<CK_ULONG>(old.size()),
                                  reinterpret_cast<CK_UTF8CHAR*>(pin.bytes()),
                                  static_cast<CK_ULONG>(HeldPin::digits));
            session.module().call("C_CloseSession", &CK_FUNCTION_LIST::C_CloseSession, handle);
        });
        startProxy();
    }

    int logIn(char* pin)
    {
        std::string name = m_reader;
        std::string table = tablePath();
        std::string folder;
        EXPECT_EQ(mvInitializeFromATRLite(name.data(), table.data(), folder.data()), 0);
        const int result = mvLogin(pin);
        if (result == 0) {
            EXPECT_EQ(mvFinalize(), 0);
        }
        return result;
    }

    int readStores(char* pin)
    {
        std::string name = m_reader;
        Stores stores;
        std::array<int, 3> flags{};
        std::array<std::array<char, 32>, 2> keyLabels{};
        std::array<char, 9> expiry{};
        return rinnovo_Card_readCerts(name.data(), pin, 3, stores.cns(), stores.pra(), stores.aut(),
                                      &flags[0], &flags[1], &flags[2], keyLabels[0].data(),
                                      keyLabels[1].data(), expiry.data(), "");
    }

    int findLabels(char* pin)
    {
        std::string name = m_reader;
        std::array<std::array<char, 32>, 2> keyLabels{};
        return rinnovo_Card_findFreeCKAID(name.data(), pin, keyLabels[0].data(),
                                          keyLabels[1].data());
    }

    int makeRequest(char* pin)
    {
        std::string label = "AUT1";
        m_request.assign(16384, '\0');
        return rinnovo_Card_createCertRequestAUT(m_request.data(), label.data(), pin,
                                                 m_descriptor[ckaIdField].data(),
                                                 m_descriptor[subjectField].data(), false);
    }

    int saveText(char* pin, std::string text)
    {
        std::string label = "AUT1";
        return rinnovo_Card_saveCertAUT(pin, m_descriptor[ckaIdField].data(), label.data(),
                                        text.data(), false);
    }

    std::string m_reader;
    std::vector<std::string> m_descriptor;
    std::vector<char> m_request;
};

TEST_F(CardPinSecrecy, copyLeftInFreedMemory_isFoundByTheScan)
{
    HeldPin pin;
    EXPECT_EQ(pin.copies(), 1);
    {
        // In the middle of a block too large for the allocator to hand out again at once.
        std::string copy(60000, ' ');
        copy.replace(copy.size() / 2, HeldPin::digits, pin.bytes());
        EXPECT_EQ(pin.copies(), 2);
    }
    pin.wipe();
    EXPECT_EQ(pin.copies(), 1);
}

TEST_F(CardPinSecrecy, callAccepted_noCopyWhileTheCardIsAskedAndNoneLeft)
{
    makeCard({"aut"});
    m_reader = reader();
    m_descriptor = read().aut.at(0);
    HeldPin pin;
    setPin(pin);
    int largest = 0;
    proxy().before = [&](const std::string&) { largest = std::max(largest, pin.copies()); };
    const auto check = [&](const char* name, int result, std::size_t logins) {
        SCOPED_TRACE(name);
        EXPECT_EQ(result, 0) << lastError().text;
        EXPECT_EQ(proxy().count("C_Login"), logins);
        // The caller's.
        EXPECT_EQ(largest, 1);
        EXPECT_EQ(pin.copies(), 1);
        largest = 0;
        proxy().calls.clear();
    };
    proxy().calls.clear();
    check("login", logIn(pin.bytes()), 1);
    check("read", readStores(pin.bytes()), 1);
    check("labels", findLabels(pin.bytes()), 1);
    check("request", makeRequest(pin.bytes()), 1);
    // Demonstration authority and text are not the card libraries'.
    const std::string issued = issue(m_request.data());
    check("save", saveText(pin.bytes(), issued), 1);
    pin.wipe();
    EXPECT_EQ(pin.copies(), 0);
}

TEST_F(CardPinSecrecy, keyThatWantsThePinEachTime_noCopyIsLeft)
{
    makeCard({"aut"});
    m_reader = reader();
    m_descriptor = read().aut.at(0);
    HeldPin pin;
    setPin(pin);
    proxy().wantsPinEachTime = true;
    ASSERT_EQ(findLabels(pin.bytes()), 0) << lastError().text;
    ASSERT_EQ(makeRequest(pin.bytes()), 0) << lastError().text;
    ASSERT_EQ(saveText(pin.bytes(), issue(m_request.data())), 0) << lastError().text;
    EXPECT_EQ(proxy().count("C_Login(context)"), 3u);
    pin.wipe();
    EXPECT_EQ(pin.copies(), 0);
}

TEST_F(CardPinSecrecy, callRefused_noCopyIsLeftAndNoneIsInTheText)
{
    makeCard({"aut"});
    m_reader = reader();
    m_descriptor = read().aut.at(0);
    const std::string table = tableEntry();
    ASSERT_EQ(labels().result, 0);
    const auto refuse = [&](const char* name, auto&& call) {
        SCOPED_TRACE(name);
        HeldPin pin;
        EXPECT_NE(call(pin.bytes()), 0);
        const std::string text = lastError().text;
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find(pin.bytes()), std::string::npos);
        pin.wipe();
        EXPECT_EQ(pin.copies(), 0);
    };
    const std::string other = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";
    // The card's PIN is another one.
    refuse("login", [&](char* pin) { return logIn(pin); });
    refuse("read", [&](char* pin) { return readStores(pin); });
    refuse("labels", [&](char* pin) { return findLabels(pin); });
    refuse("request", [&](char* pin) { return makeRequest(pin); });
    refuse("save", [&](char* pin) { return saveText(pin, other); });
    proxy().loginAnswer = CKR_OK;
    refuse("read behind a login that was none", [&](char* pin) {
        proxy().failingName = "C_FindObjects";
        proxy().failingCall = proxy().count("C_FindObjects") + 1;
        return readStores(pin);
    });
    proxy().reset();
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.ulMaxPinLen = 8; };
    refuse("length", [&](char* pin) { return logIn(pin); });
}

TEST_F(CardPinSecrecy, saveRefusedByTheCard_noCopyIsLeft)
{
    makeCard({"aut"});
    m_reader = reader();
    m_descriptor = read().aut.at(0);
    HeldPin pin;
    setPin(pin);
    ASSERT_EQ(findLabels(pin.bytes()), 0) << lastError().text;
    ASSERT_EQ(makeRequest(pin.bytes()), 0) << lastError().text;
    const std::string issued = issue(m_request.data());
    proxy().failingName = "C_CreateObject";
    proxy().failingCall = 1;
    EXPECT_NE(saveText(pin.bytes(), issued), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(CKR_DEVICE_ERROR));
    pin.wipe();
    EXPECT_EQ(pin.copies(), 0);
}

}  // namespace
}  // namespace cardlibs_test
