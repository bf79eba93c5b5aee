// What a token tells of its PIN before anybody tries one.

#include "imports/molvane.h"
#include "tests/cardlibs/proxy_fixture.h"

#include <functional>

namespace cardlibs_test {
namespace {

struct LoginRow {
    const char* told;
    std::function<void(CK_TOKEN_INFO&)> change;
    std::string pin;
    // CKR_OK: the PIN is tried.
    CK_RV refusal;
};

std::function<void(CK_TOKEN_INFO&)> pinLengths(CK_ULONG least, CK_ULONG most)
{
    return [=](CK_TOKEN_INFO& info) {
        info.ulMinPinLen = least;
        info.ulMaxPinLen = most;
    };
}

std::vector<LoginRow> loginRows()
{
    const std::string pin = cardPin;
    const std::string shorter = pin.substr(1);
    constexpr CK_ULONG unknown = CK_UNAVAILABLE_INFORMATION;
    return {
        {"nothing", nullptr, pin, CKR_OK},
        {"nothing, empty PIN", nullptr, "", CKR_PIN_LEN_RANGE},
        {"eight digits", pinLengths(8, 8), pin, CKR_OK},
        {"eight digits, shorter PIN", pinLengths(8, 8), shorter, CKR_PIN_LEN_RANGE},
        {"eight digits, longer PIN", pinLengths(8, 8), pin + "1", CKR_PIN_LEN_RANGE},
        {"nine digits and more", pinLengths(9, 12), pin, CKR_PIN_LEN_RANGE},
        {"up to seven digits", pinLengths(4, 7), pin, CKR_PIN_LEN_RANGE},
        {"no upper bound, as zero", pinLengths(4, 0), pin, CKR_OK},
        {"no upper bound", pinLengths(4, unknown), pin, CKR_OK},
        {"no lower bound", pinLengths(unknown, 12), pin, CKR_OK},
        {"no bounds", pinLengths(unknown, unknown), pin, CKR_OK},
        {"bounds the wrong way round", pinLengths(12, 4), pin, CKR_OK},
        {"locked", [](CK_TOKEN_INFO& info) { info.flags |= CKF_USER_PIN_LOCKED; }, pin,
         CKR_PIN_LOCKED},
        {"not initialised",
         [](CK_TOKEN_INFO& info) { info.flags &= ~CK_FLAGS(CKF_USER_PIN_INITIALIZED); }, pin,
         CKR_USER_PIN_NOT_INITIALIZED},
        {"low on tries", [](CK_TOKEN_INFO& info) { info.flags |= CKF_USER_PIN_COUNT_LOW; }, pin,
         CKR_OK},
    };
}

class LoginCheck : public ProxyFixture {
protected:
    ~LoginCheck() override { mvFinalize(); }

    int logIn(const std::string& name, const std::string& pin)
    {
        std::string readerName = name;
        std::string table = tablePath();
        std::string folder;
        EXPECT_EQ(mvInitializeFromATRLite(readerName.data(), table.data(), folder.data()), 0)
            << lastError().text;
        const int result = mvLogin(pin.c_str());
        const LastError error = lastError();
        EXPECT_EQ(mvFinalize(), 0);
        m_loginError = error;
        return result;
    }

    LastError m_loginError;
};

TEST_F(LoginCheck, whatTheTokenTells_decidesWhetherATryIsSpent)
{
    makeCard({"aut"});
    const std::string name = reader();
    const auto descriptor = read().aut.at(0);
    for (const LoginRow& row : loginRows()) {
        SCOPED_TRACE(row.told);
        const std::size_t tries = row.refusal == CKR_OK ? 1 : 0;
        const auto expect = [&](int result, const LastError& error) {
            EXPECT_EQ(result == 0, row.refusal == CKR_OK);
            EXPECT_EQ(error.number, static_cast<int>(row.refusal)) << error.text;
            EXPECT_EQ(proxy().count("C_Login"), tries);
            proxy().calls.clear();
        };
        proxy().reset();
        ASSERT_EQ(labels().result, 0);
        proxy().reset();
        proxy().changeTokenInfo = row.change;
        const int loggedIn = logIn(name, row.pin);
        expect(loggedIn, m_loginError);
        const int inventory = readCerts(name, row.pin).result;
        expect(inventory, lastError());
        const int requested = createRequest(Function::aut, "AUT1", row.pin, descriptor[ckaIdField],
                                            descriptor[subjectField])
                                  .result;
        expect(requested, lastError());
        const int searched = findFreeLabels(name, row.pin).result;
        expect(searched, lastError());
    }
}

TEST_F(LoginCheck, lockedByTheFirstTry_theSecondOfTheSessionIsNotMade)
{
    makeCard({});
    std::string name = reader();
    std::string table = tablePath();
    std::string folder;
    ASSERT_EQ(mvInitializeFromATRLite(name.data(), table.data(), folder.data()), 0);
    proxy().changeTokenInfo = [this](CK_TOKEN_INFO& info) {
        if (proxy().count("C_Login") > 0)
            info.flags |= CKF_USER_PIN_LOCKED;
    };
    EXPECT_NE(mvLogin(wrongPin), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(CKR_PIN_INCORRECT));
    EXPECT_NE(mvLogin(cardPin), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(CKR_PIN_LOCKED));
    EXPECT_EQ(proxy().count("C_Login"), 1u);
}

}  // namespace
}  // namespace cardlibs_test
