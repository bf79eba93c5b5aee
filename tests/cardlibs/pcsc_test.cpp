// Readers of a real PC/SC service, with cards made up for the test.

#include "cardlibs/readers/pcsc_readers.h"
#include "cardlibs/readers/reader_directory.h"
#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/outside_tools.h"
#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/virtual_reader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <optional>

#if defined(__SANITIZE_ADDRESS__)
// OpenSC's module keeps its context of the service until the process has ended, when nothing points
// to it any more; whole stacks are needed to tell it from one of ours.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:opensc";
}
#endif

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
    // The service is where libpcsclite looks for it.
    static void SetUpTestSuite() {}

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

TEST_F(Pcsc, cardsInBothReaders_eachByItsOwnAtr)
{
    makeCard({});
    writeTable(m_cardEntry + "[card Altra]\nmodule = " PROXY_FILE "\natr = " +
               cardlibs::hexadecimal(otherAtr) + "\n");
    const VirtualCard first(0, otherAtr);
    const VirtualCard second(1, knownAtr);
    ASSERT_TRUE(first.isInserted() && second.isInserted());
    for (const char* const name : {firstReader, secondReader}) {
        SCOPED_TRACE(name);
        describeSlots(name);
        EXPECT_EQ(moduleFor(name), 0) << lastError().text;
        EXPECT_EQ(mvIsCNSINCARD() != 0, name == secondReader);
        EXPECT_EQ(open(name), 0) << lastError().text;
        // The token lies in the other one.
        EXPECT_NE(open(name == firstReader ? secondReader : firstReader), 0);
        expectError(fault::slotNotFound);
    }
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

TEST_F(Pcsc, twoSlotsOfOneReader_refusedUnlessTheTableTellsWhich)
{
    makeCard({});
    ASSERT_EQ(std::system("softhsm2-util --init-token --free --label 'Altra (Firma)' --pin 1234 "
                          "--so-pin 12345678 >/dev/null 2>&1"),
              0);
    startProxy();
    const VirtualCard card(0, knownAtr);
    ASSERT_TRUE(card.isInserted());
    describeSlots(firstReader);
    for (const char* pattern : {"", "token_label = *\n", "token_label = *(Utente)\n"}) {
        SCOPED_TRACE(pattern);
        writeTable(m_cardEntry + pattern);
        EXPECT_NE(open(firstReader), 0);
        expectError(fault::slotAmbiguous);
        EXPECT_THAT(lastError().text, HasSubstr("Altra (Firma)"));
        EXPECT_THAT(lastError().text, HasSubstr("Carta di prova"));
        EXPECT_EQ(proxy().count("C_Login"), 0u);
    }
    writeTable(m_cardEntry + "token_label = *(Firma)\n");
    ASSERT_EQ(open(firstReader), 0) << lastError().text;
    EXPECT_EQ(mvLogin("1234"), 0) << lastError().text;
    writeTable(m_cardEntry + "token_label = Carta*\n");
    ASSERT_EQ(open(firstReader), 0) << lastError().text;
    EXPECT_EQ(mvLogin(cardPin), 0) << lastError().text;
}

TEST_F(Pcsc, oneSlotOfAReader_takenWhateverTheLabelKeySays)
{
    makeCard({});
    const VirtualCard card(0, knownAtr);
    ASSERT_TRUE(card.isInserted());
    describeSlots(firstReader);
    writeTable(m_cardEntry + "token_label = *(Firma)\n");
    EXPECT_EQ(open(firstReader), 0) << lastError().text;
}

// Debian's pcscd lets in whoever may use its socket.
TEST_F(Pcsc, ordinaryUser_seesReadersUnlessKeptFromTheSocket)
{
    const auto seen = [] { return runTool({LISTER_FILE}).output; };
    const std::string readers = std::string("running\n") + firstReader + "\n" + secondReader + "\n";
    EXPECT_EQ(seen(), readers);
    m_daemon.permitSocket(false);
    EXPECT_EQ(seen(), "refusing\n");
    m_daemon.permitSocket(true);
    EXPECT_EQ(seen(), readers);
}

TEST_F(Pcsc, serviceHangs_failureInTimeAndReadersOnceItGoesOn)
{
    using namespace std::chrono_literals;
    using cardlibs::readers::listPcscReaders;
    using cardlibs::readers::PcscService;
    ASSERT_EQ(listPcscReaders().service, PcscService::running);
    m_daemon.freeze();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(listPcscReaders(200ms).service, PcscService::failing);
    EXPECT_EQ(names(), "");
    EXPECT_LT(m_namesResult, 0);
    expectError(fault::serviceFailed);
    EXPECT_NE(open(firstReader), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    // Software tokens do not need it.
    makeCard({});
    writeTable(m_cardEntry + tableEntry());
    EXPECT_EQ(names(), reader() + "|");
    m_daemon.thaw();
    for (int attempt = 0; attempt < 100 && m_namesResult != 3; ++attempt) {
        std::this_thread::sleep_for(20ms);
        names();
    }
    EXPECT_EQ(m_namesResult, 3);
}

TEST_F(Pcsc, serviceStopsAfterTheListing_saidBesideTheReader)
{
    EXPECT_THAT(names(), StartsWith(firstReader));
    m_daemon.stop();
    EXPECT_NE(open(firstReader), 0);
    expectError(fault::serviceStopped);
    writeTable(m_cardEntry + tableEntry());
    EXPECT_NE(open(firstReader), 0);
    expectError(fault::readerNotFound);
    EXPECT_THAT(lastError().text, HasSubstr(firstReader));
    EXPECT_THAT(lastError().text, HasSubstr("pcscd"));
    ASSERT_TRUE(m_daemon.start());
    EXPECT_NE(open(firstReader), 0);
    expectError(CKR_TOKEN_NOT_PRESENT);
}

// OpenSC finds nothing to talk to on a card that refuses every command, but it is the one asked.
TEST_F(Pcsc, cardOfTheShippedTable_reachesTheModuleOfItsEntry)
{
    const auto cns = cardlibs::readers::parseAtr(
        "3B FF 18 00 FF 81 31 FE 55 00 6B 02 09 02 00 01 11 01 43 4E 53 11 31 80 8E");
    ASSERT_TRUE(cns);
    const VirtualCard card(0, *cns);
    ASSERT_TRUE(card.isInserted());
    const cardlibs::readers::AtrTable table = cardlibs::readers::readAtrTable(SHIPPED_TABLE);
    const auto listing = cardlibs::readers::listPcscReaders();
    cardlibs::readers::CardPath path;
    try {
        followToCard(table, listing.readers, listing.readers.at(0), path);
        ADD_FAILURE() << "slot " << path.slot.value_or(0);
    } catch (const cardlibs::state::CardError& error) {
        EXPECT_EQ(error.number(), fault::slotNotFound) << error.text();
    }
    ASSERT_TRUE(path.match && path.match->entry != nullptr);
    EXPECT_EQ(path.match->entry->name, "CNS");
    EXPECT_TRUE(path.match->entry->isCns);
    ASSERT_NE(path.module, nullptr);
    EXPECT_EQ(path.module->fileName(), "opensc-pkcs11.so");
    ASSERT_TRUE(path.slots);
    EXPECT_TRUE(path.slots->empty());
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
