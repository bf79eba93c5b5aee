// Readers of a real PC/SC service, with cards made up for the test.

#include "cardlibs/readers/pcsc_readers.h"
#include "cardlibs/readers/reader_directory.h"
#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/virtual_reader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using cardlibs::Bytes;
namespace fault = cardlibs::state::fault;

const Bytes knownAtr = {0x3B, 0x86, 0x80, 0x01, 0x54, 0x41, 0x52, 0x56, 0x45, 0x4C, 0x09};
const Bytes otherAtr = {0x3B, 0x86, 0x80, 0x01, 0x41, 0x4C, 0x54, 0x52, 0x4F, 0x21, 0x14};

class Pcsc : public ProxyFixture {
protected:
    void SetUp() override
    {
        const std::string obstacle = PcscDaemon::obstacle();
        if (!obstacle.empty())
            GTEST_SKIP() << obstacle;
        ASSERT_TRUE(m_daemon.start());
        m_cardEntry =
            "[card Prova]\nmodule = " PROXY_FILE "\natr = " + cardlibs::hexadecimal(knownAtr) +
            "\ncns = yes\n";
        writeTable(m_cardEntry);
    }

    ~Pcsc() override { mvFinalize(); }

    std::string names()
    {
        char buffer[1024] = {};
        long length = sizeof buffer;
        m_namesResult = mvGetReaderName(buffer, &length);
        return buffer;
    }

    int moduleFor(const char* reader)
    {
        char module[64] = {};
        std::string name = reader;
        std::string table = tablePath();
        return mvGetPKCS11FromATRLite(name.data(), module, table.data());
    }

    int open(const char* reader)
    {
        std::string name = reader;
        std::string table = tablePath();
        std::string folder;
        return mvInitializeFromATRLite(name.data(), table.data(), folder.data());
    }

    // The token of the proxy lies in the virtual reader of this name.
    void describeSlots(const std::string& reader)
    {
        proxy().changeSlotInfo = [reader](CK_SLOT_INFO& info, bool isInitialised) {
            const std::string text = isInitialised ? reader : "Altro lettore";
            std::memset(info.slotDescription, ' ', 64);
            std::copy_n(text.begin(), std::min<std::size_t>(64, text.size()), info.slotDescription);
        };
    }

    void expectError(unsigned long number)
    {
        EXPECT_EQ(lastError().number, static_cast<int>(number)) << lastError().text;
    }

    PcscDaemon m_daemon;
    std::string m_cardEntry;
    int m_namesResult = 0;
};

TEST_F(Pcsc, readers_listedBesideSoftwareTokensInOneOrder)
{
    EXPECT_EQ(names(), std::string(firstReader) + "|" + secondReader + "|");
    EXPECT_EQ(m_namesResult, 2);
    makeCard({});
    writeTable(m_cardEntry + tableEntry());
    EXPECT_EQ(names(), std::string(firstReader) + "|" + secondReader + "|" + reader() + "|");
    EXPECT_EQ(m_namesResult, 3);
}

TEST_F(Pcsc, serviceStopped_softwareTokensStillListedElseSaid)
{
    m_daemon.stop();
    EXPECT_EQ(names(), "");
    EXPECT_LT(m_namesResult, 0);
    expectError(fault::serviceStopped);
    makeCard({});
    writeTable(m_cardEntry + tableEntry());
    EXPECT_EQ(names(), reader() + "|");
    // What was missing when a program began comes without a new start.
    ASSERT_TRUE(m_daemon.start());
    EXPECT_THAT(names(), StartsWith(firstReader));
}

TEST_F(Pcsc, readerWithoutCard_tokenNotPresent)
{
    EXPECT_NE(moduleFor(firstReader), 0);
    expectError(CKR_TOKEN_NOT_PRESENT);
    EXPECT_NE(moduleFor("Altro lettore"), 0);
    expectError(fault::readerNotFound);
}

TEST_F(Pcsc, cardNotInTable_unknownCardNamingItsAtr)
{
    const VirtualCard card(0, otherAtr);
    ASSERT_TRUE(card.isInserted());
    EXPECT_NE(moduleFor(firstReader), 0);
    expectError(0xBFC);
    EXPECT_THAT(lastError().text, HasSubstr(cardlibs::hexadecimal(otherAtr)));
    // An entry with a mistake is the first thing to look at.
    writeTable("[card Rotta]\nmodule = x\natr = 3B\n" + m_cardEntry);
    EXPECT_NE(moduleFor(firstReader), 0);
    expectError(0xBFC);
    EXPECT_THAT(lastError().text, HasSubstr("table.ini:3: atr"));
    // An entry for all other cards takes it.
    writeTable(m_cardEntry + "[default]\nmodule = " PROXY_FILE "\n");
    makeCard({});
    describeSlots(firstReader);
    EXPECT_EQ(moduleFor(firstReader), 0) << lastError().text;
}

TEST_F(Pcsc, cardInTable_moduleAndFlagsAndSlotByItsReader)
{
    makeCard({"aut"});
    const VirtualCard card(1, knownAtr);
    ASSERT_TRUE(card.isInserted());
    describeSlots(secondReader);
    EXPECT_EQ(moduleFor(secondReader), 0) << lastError().text;
    EXPECT_NE(mvIsCNSINCARD(), 0);
    ASSERT_EQ(open(secondReader), 0) << lastError().text;
    EXPECT_EQ(mvLogin(cardPin), 0);
    EXPECT_EQ(mvFinalize(), 0);
    const ReadResult read = readCerts(secondReader, cardPin);
    EXPECT_EQ(read.result, 0) << lastError().text;
    EXPECT_EQ(read.autCount, "1");
    EXPECT_NE(moduleFor(firstReader), 0);
    expectError(CKR_TOKEN_NOT_PRESENT);
}

TEST_F(Pcsc, slotOfAnotherReader_neverTaken)
{
    makeCard({});
    const VirtualCard card(0, knownAtr);
    ASSERT_TRUE(card.isInserted());
    describeSlots("Virtual PCD 00 0");
    EXPECT_NE(open(firstReader), 0);
    expectError(fault::slotNotFound);
}

TEST_F(Pcsc, twoSlotsOfOneDescription_refused)
{
    makeCard({});
    ASSERT_EQ(std::system("softhsm2-util --init-token --free --label Altra --pin 1234 "
                          "--so-pin 12345678 >/dev/null 2>&1"),
              0);
    startProxy();
    const VirtualCard card(0, knownAtr);
    ASSERT_TRUE(card.isInserted());
    describeSlots(firstReader);
    EXPECT_NE(open(firstReader), 0);
    expectError(fault::readerAmbiguous);
}

TEST_F(Pcsc, cardPutInAndPulledOut_seenEachTime)
{
    makeCard({});
    describeSlots(firstReader);
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        {
            const VirtualCard card(0, knownAtr);
            ASSERT_TRUE(card.isInserted());
            EXPECT_EQ(moduleFor(firstReader), 0) << lastError().text;
        }
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (!cardlibs::readers::listPcscReaders().readers.at(0).hasCard)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        EXPECT_NE(moduleFor(firstReader), 0);
        expectError(CKR_TOKEN_NOT_PRESENT);
    }
}

}  // namespace
}  // namespace cardlibs_test
