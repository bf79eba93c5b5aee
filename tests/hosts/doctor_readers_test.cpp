// doctor with smart card readers: a real PC/SC service with virtual ones.

#include "doctor_case.h"
#include "tests/cardlibs/virtual_reader.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <winscard.h>

#include <chrono>
#include <csignal>
#include <thread>

using cardlibs_test::PcscDaemon;
using cardlibs_test::VirtualCard;
using hosts::expectFindings;
using hosts::InstalledProgram;

namespace {

const cardlibs::Bytes atr = {0x3B, 0x02, 0x14, 0x50};
constexpr char atrText[] = "3B021450";

std::string cardEntry(const std::string& more = {})
{
    return "[card Prova]\nmodule = " + InstalledProgram::proxyFile() + "\natr = " + atrText + "\n" +
           more;
}

class DoctorAtReaders : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string obstacle = PcscDaemon::obstacle();
        if (!obstacle.empty()) {
            GTEST_SKIP() << obstacle;
        }
        ASSERT_TRUE(m_daemon.start());
        m_program.useMachineService();
        m_program.writeTable(cardEntry());
    }

    // The tokens of the software card lie in the first reader.
    void putTokensIntoReader()
    {
        m_program.set("PKCS11_PROXY_SLOT_NAME", cardlibs_test::firstReader);
    }

    void expect(const std::vector<std::string>& problems,
                const std::vector<std::string>& warnings = {})
    {
        expectFindings(m_program,
                       {{}, {}, problems, warnings, {"--reader", cardlibs_test::firstReader}});
    }

    // The lock comes first: one service at a time.
    PcscDaemon m_daemon;
    InstalledProgram m_program;
};

// A service that finds no reader in its configuration. Its mounts are its own.
class ServiceWithoutReaders {
public:
    ServiceWithoutReaders()
        : m_process(::fork())
    {
        if (m_process == 0) {
            ::execlp("unshare", "unshare", "--mount", "sh", "-c",
                     "mount -t tmpfs none /etc/reader.conf.d && exec pcscd --foreground "
                     ">/dev/null 2>&1",
                     nullptr);
            ::_exit(127);
        }
    }
    ~ServiceWithoutReaders()
    {
        if (m_process > 0) {
            ::kill(m_process, SIGTERM);
            ::waitpid(m_process, nullptr, 0);
        }
    }
    ServiceWithoutReaders(const ServiceWithoutReaders&) = delete;
    ServiceWithoutReaders& operator=(const ServiceWithoutReaders&) = delete;

private:
    pid_t m_process;
};

bool waitForService(const InstalledProgram& program)
{
    for (int attempt = 0; attempt < 50; ++attempt) {
        if (program.answer({"readers"})["pcscService"] == QLatin1String("running")) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

}  // namespace

TEST_F(DoctorAtReaders, noReader_isFound)
{
    if (!hosts::mayMount()) {
        GTEST_SKIP() << hosts::noMounts;
    }
    m_daemon.stop();
    const ServiceWithoutReaders service;
    ASSERT_TRUE(waitForService(m_program));
    expectFindings(m_program, {{}, {}, {"no-reader"}, {}});
}

TEST_F(DoctorAtReaders, emptyReader_isFound)
{
    expect({"no-card"});
}

TEST_F(DoctorAtReaders, cardThatDoesNotAnswer_isFound)
{
    const VirtualCard card(0, cardlibs::Bytes(40, 0x3B));
    ASSERT_TRUE(card.isInserted());
    expect({"card-mute"});
}

TEST_F(DoctorAtReaders, cardHeldByAnotherProgram_isFound)
{
    const VirtualCard inserted(0, atr);
    ASSERT_TRUE(inserted.isInserted());
    SCARDCONTEXT context = 0;
    ASSERT_EQ(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context),
              SCARD_S_SUCCESS);
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCardConnect(context, cardlibs_test::firstReader, SCARD_SHARE_EXCLUSIVE,
                           SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card, &protocol),
              SCARD_S_SUCCESS);
    expect({"card-in-use"});
    EXPECT_EQ(SCardDisconnect(card, SCARD_LEAVE_CARD), SCARD_S_SUCCESS);
    EXPECT_EQ(SCardReleaseContext(context), SCARD_S_SUCCESS);
}

TEST_F(DoctorAtReaders, cardNotInTable_isFoundWithItsAtr)
{
    const VirtualCard card(0, {0x3B, 0x02, 0x14, 0x51});
    ASSERT_TRUE(card.isInserted());
    expect({"card-unknown"});
    EXPECT_NE(m_program.screen({"doctor"}, "en", 24).find("3B021451"), std::string::npos);
}

TEST_F(DoctorAtReaders, moduleOfTheCardMissing_isFound)
{
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    m_program.writeTable(std::string("[card Prova]\nmodule = /nonexistent.so\natr = ") + atrText +
                         "\n");
    expect({"module-missing"});
}

TEST_F(DoctorAtReaders, moduleThatDoesNotSeeTheReader_isFound)
{
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    expect({"slot-not-found"});
}

TEST_F(DoctorAtReaders, cardThatCanBeUsed_emptyReaderBesideIsNotMentioned)
{
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    putTokensIntoReader();
    expect({});
    const QJsonObject answer = m_program.answer({"doctor"});
    EXPECT_EQ(hosts::findingIds(answer, "ok"),
              (std::vector<std::string>{"clock-plausible", "home-usable", "pcsc-running",
                                        "table-usable", "reader-ready"}));
    EXPECT_EQ(hosts::findingIds(answer, "warning"), std::vector<std::string>());
}

TEST_F(DoctorAtReaders, unknownCardBesideOneThatCanBeUsed_isAWarning)
{
    const VirtualCard card(0, atr);
    const VirtualCard other(1, {0x3B, 0x02, 0x14, 0x51});
    ASSERT_TRUE(card.isInserted() && other.isInserted());
    putTokensIntoReader();
    expectFindings(m_program, {{}, {}, {}, {"card-unknown"}});
}

TEST_F(DoctorAtReaders, tokenWithoutAnything_isFound)
{
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    putTokensIntoReader();
    m_program.set("PKCS11_PROXY_CLEAR_FLAGS", hosts::tokenInitialised);
    expect({"token-not-initialised"});
}

TEST_F(DoctorAtReaders, severalPins_areFoundUntilTheTableTellsWhich)
{
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    ASSERT_EQ(m_program.card()
                  .shell("softhsm2-util --init-token --free --label Firma --pin 11111111 "
                         "--so-pin 22222222")
                  .exitCode,
              0);
    putTokensIntoReader();
    expect({"slot-ambiguous"});
    m_program.writeTable(cardEntry("token_label = Firma\n"));
    expect({});
}
