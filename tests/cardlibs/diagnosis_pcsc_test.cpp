// What hosts are told of the readers of a real PC/SC service.

#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/told_diagnosis.h"
#include "tests/cardlibs/virtual_reader.h"

#include <gmock/gmock.h>
#include <winscard.h>

#include <algorithm>
#include <cstring>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;

using cardlibs::Bytes;
namespace fault = cardlibs::state::fault;

const Bytes atr = {0x3B, 0x86, 0x80, 0x01, 0x54, 0x41, 0x52, 0x56, 0x45, 0x4C, 0x09};

std::string cardEntry(const std::string& module)
{
    return "[card Prova]\nmodule = " + module + "\natr = " + cardlibs::hexadecimal(atr) + "\n";
}

class DiagnosisPcsc : public ProxyFixture {
protected:
    // The service is where libpcsclite looks for it.
    static void SetUpTestSuite() {}

    void SetUp() override
    {
        const std::string obstacle = PcscDaemon::obstacle();
        if (!obstacle.empty())
            GTEST_SKIP() << obstacle;
        ASSERT_TRUE(m_daemon.start());
        writeTable(cardEntry(PROXY_FILE));
    }

    ~DiagnosisPcsc() override { mvFinalize(); }

    // What opening a session with the first reader's card ends with.
    unsigned long openingError()
    {
        std::string name = firstReader;
        std::string table = tablePath();
        std::string folder;
        mvInitializeFromATRLite(name.data(), table.data(), folder.data());
        const int number = lastError().number;
        mvFinalize();
        return static_cast<unsigned long>(number);
    }

    static void makeToken(const std::string& label)
    {
        const std::string command = "softhsm2-util --init-token --free --label " + label +
                                    " --pin 1234 --so-pin 12345678 >/dev/null 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    // Tokens of the proxy lie in the first virtual reader.
    void putTokensIntoReader()
    {
        proxy().changeSlotInfo = [](CK_SLOT_INFO& info, bool isInitialised) {
            const std::string text = isInitialised ? firstReader : "Altro lettore";
            std::memset(info.slotDescription, ' ', 64);
            std::copy(text.begin(), text.end(), info.slotDescription);
        };
    }

    PcscDaemon m_daemon;
};

// A card without a session: how the way to it ends, and that opening one would end so too.
struct Way {
    const char* name;
    std::string table;
    int tokens;
    bool areInReader;
    Told match;
    Told entry;
    Told isLoaded;
    Told slots;
    unsigned long error;
};

TEST_F(DiagnosisPcsc, cardPresent_entryModuleAndSlotAsOpeningFindsThem)
{
    const std::string known = cardEntry(PROXY_FILE);
    const std::string masked =
        "[card Maschera]\nmodule = " PROXY_FILE "\natr = 3B86800154415256454C00\n"
        "atr_mask = FFFFFFFFFFFFFFFFFFFF00\n";
    const std::string other = "[card Altra]\nmodule = x\natr = 3B00\n";
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    int tokensMade = 0;
    for (const Way& way : {
             Way{"no entry", other, 0, false, MV_MATCH_NONE, notKnown, notKnown, notKnown,
                 fault::unknownCard},
             Way{"no module", cardEntry("/nonexistent/module.so"), 0, false, MV_MATCH_ATR, "Prova",
                 0, notKnown, fault::moduleNotLoaded},
             Way{"no token", known, 0, true, MV_MATCH_ATR, "Prova", 1, 0, fault::slotNotFound},
             Way{"token elsewhere", known, 1, false, MV_MATCH_ATR, "Prova", 1, 0,
                 fault::slotNotFound},
             Way{"exact", known, 1, true, MV_MATCH_ATR, "Prova", 1, 1, 0},
             Way{"masked", masked, 1, true, MV_MATCH_MASKED_ATR, "Maschera", 1, 1, 0},
             Way{"default", other + "[default]\nmodule = " PROXY_FILE "\n", 1, true,
                 MV_MATCH_DEFAULT, "", 1, 1, 0},
             Way{"two slots", known, 2, true, MV_MATCH_ATR, "Prova", 1, 2, fault::slotAmbiguous},
             Way{"one chosen of two", known + "token_label = Pr*\n", 2, true, MV_MATCH_ATR, "Prova",
                 1, 2, 0},
         }) {
        SCOPED_TRACE(way.name);
        for (; tokensMade < way.tokens; ++tokensMade)
            makeToken(tokensMade == 0 ? "Prova" : "Firma");
        startProxy();
        proxy().reset();
        if (way.areInReader)
            putTokensIntoReader();
        writeTable(way.table);
        const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
        EXPECT_EQ(proxy().count("C_OpenSession"), 0u);
        ASSERT_EQ(diagnosis.count(MV_READERS), 2);
        EXPECT_EQ(diagnosis.count(MV_OBSTACLES), 0);
        EXPECT_EQ(diagnosis.field(0, MV_SERVICE), MV_SERVICE_RUNNING);
        EXPECT_EQ(diagnosis.reader(MV_READER_NAME), firstReader);
        EXPECT_EQ(diagnosis.reader(MV_READER_KIND), MV_KIND_PCSC);
        EXPECT_EQ(diagnosis.reader(MV_READER_CARD), MV_CARD_PRESENT);
        EXPECT_EQ(diagnosis.reader(MV_READER_ATR), cardlibs::hexadecimal(atr));
        EXPECT_EQ(diagnosis.reader(MV_READER_MATCH), way.match);
        EXPECT_EQ(diagnosis.reader(MV_READER_ENTRY), way.entry);
        EXPECT_EQ(diagnosis.reader(MV_READER_MODULE_LOADED), way.isLoaded);
        EXPECT_EQ(diagnosis.reader(MV_READER_SLOTS), way.slots);
        EXPECT_EQ(diagnosis.reader(MV_TOKEN_LABEL), way.error == 0 ? Told("Prova") : notKnown);
        EXPECT_EQ(diagnosis.reader(MV_READER_ERROR), static_cast<long>(way.error));
        EXPECT_EQ(openingError(), way.error);
    }
}

TEST_F(DiagnosisPcsc, noCard_absentAndNothingMoreKnown)
{
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_EQ(diagnosis.count(MV_READERS), 2);
    EXPECT_EQ(diagnosis.field(1, MV_READER_NAME), secondReader);
    EXPECT_EQ(diagnosis.reader(MV_READER_CARD), MV_CARD_ABSENT);
    for (const int field : {MV_READER_ATR, MV_READER_MATCH, MV_READER_MODULE,
                            MV_READER_MODULE_LOADED, MV_READER_SLOTS, MV_TOKEN_FLAGS})
        EXPECT_EQ(diagnosis.reader(field), notKnown) << field;
    EXPECT_EQ(diagnosis.reader(MV_READER_ERROR), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(diagnosis.reader(MV_READER_ERROR_TEXT),
              "Nessuna carta nel lettore: inserirla e riprovare.");
    EXPECT_EQ(openingError(), CKR_TOKEN_NOT_PRESENT);
}

TEST_F(DiagnosisPcsc, cardThatDoesNotAnswer_mute)
{
    // No answer to reset has so many bytes, so the reader takes none.
    const VirtualCard card(0, Bytes(40, 0x3B));
    ASSERT_TRUE(card.isInserted());
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    EXPECT_EQ(diagnosis.reader(MV_READER_CARD), MV_CARD_MUTE);
    EXPECT_EQ(diagnosis.reader(MV_READER_ATR), notKnown);
    EXPECT_EQ(diagnosis.reader(MV_READER_ERROR), CKR_TOKEN_NOT_RECOGNIZED);
    EXPECT_EQ(openingError(), CKR_TOKEN_NOT_RECOGNIZED);
}

TEST_F(DiagnosisPcsc, cardThatAProgramKeeps_exclusiveUntilItLetsGo)
{
    const VirtualCard inserted(0, atr);
    ASSERT_TRUE(inserted.isInserted());
    SCARDCONTEXT context = 0;
    ASSERT_EQ(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context),
              SCARD_S_SUCCESS);
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCardConnect(context, firstReader, SCARD_SHARE_EXCLUSIVE,
                           SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card, &protocol),
              SCARD_S_SUCCESS);
    EXPECT_EQ(diagnoseReaders(tablePath()).reader(MV_READER_CARD), MV_CARD_EXCLUSIVE);
    EXPECT_EQ(diagnoseReaders(tablePath()).reader(MV_READER_ATR), cardlibs::hexadecimal(atr));
    EXPECT_EQ(SCardDisconnect(card, SCARD_LEAVE_CARD), SCARD_S_SUCCESS);
    EXPECT_EQ(SCardReleaseContext(context), SCARD_S_SUCCESS);
    EXPECT_EQ(diagnoseReaders(tablePath()).reader(MV_READER_CARD), MV_CARD_PRESENT);
}

TEST_F(DiagnosisPcsc, tableMissing_readersAndAtrToldAllTheSame)
{
    const VirtualCard card(0, atr);
    ASSERT_TRUE(card.isInserted());
    const ToldDiagnosis diagnosis = diagnoseReaders("/nonexistent/ATR-renew.ini");
    ASSERT_EQ(diagnosis.count(MV_READERS), 2);
    EXPECT_EQ(diagnosis.reader(MV_READER_ATR), cardlibs::hexadecimal(atr));
    EXPECT_EQ(diagnosis.reader(MV_READER_MATCH), notKnown);
    EXPECT_EQ(diagnosis.reader(MV_READER_ERROR), fault::tableUnreadable);
    EXPECT_EQ(diagnosis.field(0, MV_OBSTACLE_ERROR), fault::tableUnreadable);
}

TEST_F(DiagnosisPcsc, serviceStopped_toldAsStateAndObstacle)
{
    m_daemon.stop();
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    EXPECT_EQ(diagnosis.field(0, MV_SERVICE), MV_SERVICE_STOPPED);
    ASSERT_EQ(diagnosis.count(MV_OBSTACLES), 1);
    EXPECT_EQ(diagnosis.field(0, MV_OBSTACLE_ERROR), fault::serviceStopped);
    EXPECT_THAT(diagnosis.field(0, MV_OBSTACLE_TEXT).text.value_or(""), HasSubstr("pcscd"));
    EXPECT_EQ(diagnosis.count(MV_READERS), 0);
}

}  // namespace
}  // namespace cardlibs_test
