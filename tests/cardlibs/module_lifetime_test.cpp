// PKCS#11 modules that somebody else uses too, and how a process ends that uses one.

#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

using cardlibs::token::Module;

class ModuleLifetime : public ProxyFixture {
protected:
    ~ModuleLifetime() override { mvFinalize(); }

    int open(const std::string& name)
    {
        std::string readerName = name;
        std::string table = tablePath();
        std::string folder;
        return mvInitializeFromATRLite(readerName.data(), table.data(), folder.data());
    }
};

// A host that works with the card itself, through the same module of the same process.
class HostWithTheModule : public ModuleLifetime {
protected:
    HostWithTheModule()
    {
        makeCard({"aut"});
        m_name = reader();
        // The card libraries find the module started, and not by them.
        Module& module = Module::load(PROXY_FILE);
        EXPECT_EQ(module.callForResult(&CK_FUNCTION_LIST::C_Finalize, static_cast<void*>(nullptr)),
                  CKR_OK);
        EXPECT_EQ(
            module.callForResult(&CK_FUNCTION_LIST::C_Initialize, static_cast<void*>(nullptr)),
            CKR_OK);
        // A call that reports the module as not started makes them look again.
        proxy().failingName = "C_OpenSession";
        proxy().failingCall = proxy().count("C_OpenSession") + 1;
        proxy().failure = CKR_CRYPTOKI_NOT_INITIALIZED;
        EXPECT_NE(open(m_name), 0);
        proxy().reset();
        EXPECT_EQ(open(m_name), 0) << lastError().text;
        EXPECT_EQ(mvFinalize(), 0);
        EXPECT_EQ(proxy().count("C_Initialize"), 1u);
        openHostSession();
    }

    ~HostWithTheModule() override
    {
        proxy().reset();
        startProxy();
    }

    void openHostSession()
    {
        Module& module = Module::load(PROXY_FILE);
        for (const CK_SLOT_ID slot : module.slotsWithToken(true))
            if (module.tokenInfo(slot).has(CKF_TOKEN_INITIALIZED))
                module.call("C_OpenSession", &CK_FUNCTION_LIST::C_OpenSession, slot,
                            CK_FLAGS(CKF_SERIAL_SESSION), static_cast<void*>(nullptr),
                            static_cast<CK_NOTIFY>(nullptr), &m_session);
        ASSERT_NE(m_session, CK_SESSION_HANDLE(CK_INVALID_HANDLE));
        proxy().calls.clear();
    }

    CK_RV hostSessionState()
    {
        CK_SESSION_INFO info = {};
        return Module::load(PROXY_FILE)
            .callForResult(&CK_FUNCTION_LIST::C_GetSessionInfo, m_session, &info);
    }

    std::string m_name;
    CK_SESSION_HANDLE m_session = CK_INVALID_HANDLE;
};

TEST_F(HostWithTheModule, wholeRenewal_neverFinalisedAndTheHostsSessionLives)
{
    ASSERT_EQ(hostSessionState(), CKR_OK);
    char names[1024] = {};
    long length = sizeof names;
    EXPECT_EQ(mvGetReaderName(names, &length), 1);
    const auto descriptor = readCerts(m_name, cardPin).aut.at(0);
    const LabelResult free = findFreeLabels(m_name, cardPin);
    const RequestResult made = createRequest(Function::aut, free.aut, cardPin,
                                             descriptor[ckaIdField], descriptor[subjectField]);
    ASSERT_EQ(made.result, 0) << lastError().text;
    EXPECT_EQ(
        saveCertificate(Function::aut, cardPin, descriptor[ckaIdField], free.aut, issue(made.pem)),
        0)
        << lastError().text;
    EXPECT_EQ(proxy().count("C_Finalize"), 0u);
    EXPECT_EQ(hostSessionState(), CKR_OK);
}

TEST_F(HostWithTheModule, afterFailuresAndMissingReaders_neverFinalised)
{
    EXPECT_NE(open("Altro lettore"), 0);
    proxy().failingName = "C_OpenSession";
    proxy().failingCall = 1;
    proxy().failure = CKR_DEVICE_REMOVED;
    EXPECT_NE(open(m_name), 0);
    proxy().failingCall = 0;
    EXPECT_EQ(open(m_name), 0) << lastError().text;
    EXPECT_EQ(mvFinalize(), 0);
    EXPECT_EQ(proxy().count("C_Finalize"), 0u);
    EXPECT_EQ(hostSessionState(), CKR_OK);
}

TEST_F(HostWithTheModule, finalisedByTheHost_isStartedAgain)
{
    Module& module = Module::load(PROXY_FILE);
    ASSERT_EQ(module.callForResult(&CK_FUNCTION_LIST::C_Finalize, static_cast<void*>(nullptr)),
              CKR_OK);
    proxy().calls.clear();
    // The first call after it may find out only by failing.
    if (open(m_name) != 0) {
        EXPECT_EQ(open(m_name), 0) << lastError().text;
    }
    EXPECT_EQ(proxy().count("C_Initialize"), 1u);
    EXPECT_EQ(mvLogin(cardPin), 0) << lastError().text;
}

// On SoftHSM2 itself: the proxy's own state does not outlive the process's last functions.
class ProcessEnd : public CardFixture {};

TEST_F(ProcessEnd, sessionLeftOpen_processEndsCleanly)
{
    ::testing::GTEST_FLAG(death_test_style) = "fast";
    makeCard({"aut"});
    const std::string name = reader();
    EXPECT_EXIT(
        {
            std::string readerName = name;
            std::string table = tablePath();
            std::string folder;
            const bool isIn =
                mvInitializeFromATRLite(readerName.data(), table.data(), folder.data()) == 0 &&
                mvLogin(cardPin) == 0;
            // Not _exit: what the libraries leave to the end of the process is done.
            std::exit(isIn ? 0 : 3);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ModuleLifetime, moduleNameLongerThanTheCallersBuffer_saysWhatToDo)
{
    makeCard({});
    // Under its other name the module is one that somebody else started, and is not started again.
    startProxy();
    const std::string name = reader();
    for (const std::size_t size : {63u, 64u}) {
        SCOPED_TRACE(size);
        const std::filesystem::path link = folder().root() / (std::string(size - 3, 'm') + ".so");
        std::filesystem::create_symlink(PROXY_FILE, link);
        writeTable("[software x]\nmodule = " + link.string() +
                   "\nmanufacturer = SoftHSM project\nmodel = SoftHSM v2\n");
        std::string readerName = name;
        std::string table = tablePath();
        char module[64] = {};
        const int result = mvGetPKCS11FromATRLite(readerName.data(), module, table.data());
        if (size == 63) {
            EXPECT_EQ(result, 0) << lastError().text;
            EXPECT_EQ(module, link.filename().string());
            continue;
        }
        EXPECT_NE(result, 0);
        EXPECT_STREQ(module, "");
        EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::moduleNameTooLong));
        EXPECT_THAT(lastError().text, HasSubstr("63"));
        EXPECT_THAT(lastError().text, HasSubstr("ATR-renew.ini"));
        EXPECT_THAT(lastError().text, Not(HasSubstr("non caricato")));
    }
}

}  // namespace
}  // namespace cardlibs_test
