// What hosts are told of readers and cards, without a PC/SC service.

#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/diagnosis_fixture.h"
#include "tests/cardlibs/outside_tools.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

namespace cardlibs_test {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace fault = cardlibs::state::fault;

void setText(unsigned char* field, std::size_t size, const std::string& text)
{
    std::memset(field, ' ', size);
    std::copy_n(text.begin(), std::min(size, text.size()), field);
}

using Diagnosis = DiagnosisFixture;

TEST_F(Diagnosis, realToken_everyFieldToldOfReaderEntryAndToken)
{
    makeCard({"aut"});
    const std::string name = reader();
    const std::string serialNumber = name.substr(name.rfind(' ') + 1);
    // Behind a comment the section is in line 2. The module is SoftHSM2 itself, not the proxy.
    writeTable("; a comment\n"
               "[software Uno]\nname = Tessera Uno\nmodule = softhsm2\n"
               "manufacturer = SoftHSM project\nmodel = SoftHSM v2\ncns = yes\n");
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_EQ(diagnosis.count(MV_READERS), 1);
    ASSERT_EQ(open(name), 0) << lastError().text;
    expectFields(diagnosis, {{MV_READER_NAME, name},
                             {MV_READER_KIND, MV_KIND_SOFTWARE},
                             {MV_READER_CARD, MV_CARD_PRESENT},
                             {MV_READER_ATR, notKnown},
                             {MV_READER_MATCH, MV_MATCH_TOKEN},
                             {MV_READER_ENTRY, "Uno"},
                             {MV_READER_ENTRY_LINE, 2},
                             {MV_READER_MODEL_NAME, "Tessera Uno"},
                             {MV_READER_MODULE, "softhsm2"},
                             {MV_READER_CNS, 1},
                             {MV_READER_FERROLUX, 0},
                             {MV_READER_MODULE_LOADED, 1},
                             {MV_READER_SLOTS, 1},
                             {MV_READER_SLOT, getSlotBriskoLite()},
                             {MV_TOKEN_LABEL, "Carta di prova"},
                             {MV_TOKEN_MANUFACTURER, "SoftHSM project"},
                             {MV_TOKEN_MODEL, "SoftHSM v2"},
                             {MV_TOKEN_SERIAL, serialNumber},
                             {MV_TOKEN_ACTIVATED, 1},
                             {MV_TOKEN_PIN_TRIES, MV_TRIES_NOT_LOW},
                             {MV_TOKEN_PIN_TRIES_LEFT, notKnown},
                             {MV_READER_ERROR, 0},
                             {MV_READER_ERROR_TEXT, notKnown}});
    EXPECT_THAT(diagnosis.reader(MV_READER_MODULE_FILE).text.value_or(""),
                HasSubstr("libsofthsm2.so"));
    const CK_FLAGS expected = CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
    const long flags = diagnosis.reader(MV_TOKEN_FLAGS).number.value_or(0);
    EXPECT_EQ(static_cast<CK_FLAGS>(flags) & expected, expected);
}

TEST_F(Diagnosis, realToken_wrongPinGiven_triesLow)
{
    makeCard({});
    const std::string name = reader();
    writeTable("[software Uno]\nmodule = softhsm2\n"
               "manufacturer = SoftHSM project\nmodel = SoftHSM v2\n");
    ASSERT_EQ(open(name), 0) << lastError().text;
    EXPECT_NE(mvLogin(wrongPin), 0);
    ASSERT_EQ(mvFinalize(), 0);
    expectFields(diagnoseReaders(tablePath()),
                 {{MV_TOKEN_PIN_TRIES, MV_TRIES_LOW}, {MV_TOKEN_PIN_TRIES_LEFT, notKnown}});
}

TEST_F(Diagnosis, pinFlags_toldAsAStateAndAsANumberWhereOneIsMeant)
{
    makeCard({});
    struct Row {
        CK_FLAGS set;
        CK_FLAGS cleared;
        int tries;
        Told left;
        int activated;
    };
    const CK_FLAGS everyTry = CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;
    for (const Row& row : {
             Row{0, 0, MV_TRIES_NOT_LOW, notKnown, 1},
             Row{CKF_USER_PIN_COUNT_LOW, 0, MV_TRIES_LOW, notKnown, 1},
             Row{CKF_USER_PIN_FINAL_TRY, 0, MV_TRIES_LAST, 1, 1},
             Row{CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY, 0, MV_TRIES_LAST, 1, 1},
             Row{CKF_USER_PIN_LOCKED, 0, MV_TRIES_LOCKED, 0, 1},
             Row{everyTry, 0, MV_TRIES_LOCKED, 0, 1},
             Row{0, CKF_USER_PIN_INITIALIZED, MV_TRIES_NOT_LOW, notKnown, 0},
             Row{CKF_USER_PIN_TO_BE_CHANGED, 0, MV_TRIES_NOT_LOW, notKnown, 0},
         }) {
        SCOPED_TRACE(::testing::Message() << std::hex << row.set << " " << row.cleared);
        CK_FLAGS flags = 0;
        proxy().changeTokenInfo = [&](CK_TOKEN_INFO& info) {
            info.flags = (info.flags | row.set) & ~row.cleared;
            if ((info.flags & CKF_TOKEN_INITIALIZED) != 0)
                flags = info.flags;
        };
        const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
        expectFields(diagnosis, {{MV_TOKEN_PIN_TRIES, row.tries},
                                 {MV_TOKEN_PIN_TRIES_LEFT, row.left},
                                 {MV_TOKEN_ACTIVATED, row.activated},
                                 {MV_TOKEN_FLAGS, static_cast<long>(flags)},
                                 {MV_READER_ERROR, 0}});
    }
}

TEST_F(Diagnosis, readers_namesAndOrderOfTheReaderList)
{
    makeCard({});
    for (const char* label : {"Zeta", "Alfa"})
        addToken(label);
    char names[1024] = {};
    long length = sizeof names;
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_EQ(mvGetReaderName(names, &length), 3);
    std::string told;
    for (int i = 0; i < diagnosis.count(MV_READERS); ++i)
        told += diagnosis.field(i, MV_READER_NAME).text.value_or("?") + "|";
    EXPECT_EQ(told, names);
    EXPECT_THAT(told, StartsWith("Alfa "));
}

TEST_F(Diagnosis, twoTokensOfOneName_bothToldAsNotUsable)
{
    makeCard({});
    addToken("Altra");
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) {
        setText(info.label, 32, "Uguale");
        setText(info.serialNumber, 16, "1");
    };
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_EQ(diagnosis.count(MV_READERS), 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(diagnosis.field(i, MV_READER_NAME), "Uguale 1");
        EXPECT_EQ(diagnosis.field(i, MV_READER_SLOTS), 2);
        EXPECT_EQ(diagnosis.field(i, MV_READER_SLOT), notKnown);
        EXPECT_EQ(diagnosis.field(i, MV_READER_ERROR), fault::readerAmbiguous);
    }
}

TEST_F(Diagnosis, moduleThatGivesNoTokens_obstacleAndTheOthersStillTold)
{
    makeCard({});
    const std::string missing = "[software Assente]\nmodule = /nonexistent/module.so\n"
                                "manufacturer = Nobody\nmodel = None\n";
    writeTable(missing + tableEntry());
    const ToldDiagnosis absent = diagnoseReaders(tablePath());
    ASSERT_EQ(absent.count(MV_OBSTACLES), 2) << "the service and the module";
    EXPECT_EQ(absent.field(0, MV_OBSTACLE_ERROR), fault::serviceStopped);
    EXPECT_EQ(absent.field(0, MV_OBSTACLE_MODULE), notKnown);
    EXPECT_EQ(absent.field(1, MV_OBSTACLE_ERROR), fault::moduleNotLoaded);
    EXPECT_EQ(absent.field(1, MV_OBSTACLE_MODULE), "/nonexistent/module.so");
    EXPECT_THAT(absent.field(1, MV_OBSTACLE_TEXT).text.value_or(""),
                AllOf(StartsWith("Modulo PKCS#11 della carta non caricato"),
                      HasSubstr("/nonexistent/module.so")));
    EXPECT_EQ(absent.count(MV_READERS), 1);
    EXPECT_EQ(absent.reader(MV_READER_NAME), reader());

    writeTable(tableEntry());
    proxy().reset();
    proxy().failingName = "C_Initialize";
    proxy().failingCall = 1;
    proxy().failure = CKR_GENERAL_ERROR;
    const ToldDiagnosis broken = diagnoseReaders(tablePath());
    ASSERT_EQ(broken.count(MV_OBSTACLES), 2);
    EXPECT_EQ(broken.field(1, MV_OBSTACLE_ERROR), CKR_GENERAL_ERROR);
    EXPECT_EQ(broken.field(1, MV_OBSTACLE_MODULE), PROXY_FILE);
    EXPECT_EQ(broken.count(MV_READERS), 0);
}

TEST_F(Diagnosis, tableWithMistakes_eachToldWithItsLine)
{
    makeCard({});
    writeTable("[card Uno]\nmodule = x\natr = 3B\n" + tableEntry() +
               "colour = red\n[card Due]\nmodule = y\n");
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    EXPECT_EQ(diagnosis.field(0, MV_TABLE_PATH), tablePath());
    ASSERT_EQ(diagnosis.count(MV_COMPLAINTS), 3);
    for (const auto& [index, line] : {std::pair(0, 3), {1, 8}, {2, 9}})
        EXPECT_THAT(diagnosis.field(index, MV_COMPLAINT).text.value_or(""),
                    StartsWith(tablePath() + ":" + std::to_string(line) + ": "));
    // The only software entry is among them.
    EXPECT_EQ(diagnosis.count(MV_READERS), 0);
    ASSERT_EQ(diagnosis.count(MV_OBSTACLES), 2);
    EXPECT_EQ(diagnosis.field(0, MV_OBSTACLE_ERROR), fault::tableUnreadable);
}

TEST_F(Diagnosis, tableMissing_obstacleNamingTheFile)
{
    std::filesystem::remove(tablePath());
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_TRUE(diagnosis.isMade());
    EXPECT_EQ(diagnosis.field(0, MV_TABLE_PATH), tablePath());
    EXPECT_EQ(diagnosis.field(0, MV_OBSTACLE_ERROR), fault::tableUnreadable);
    EXPECT_THAT(diagnosis.field(0, MV_OBSTACLE_TEXT).text.value_or(""), HasSubstr("table.ini"));
    EXPECT_EQ(diagnosis.count(MV_COMPLAINTS), 0);
}

TEST_F(Diagnosis, tableHandedOver_isInForceForLaterCalls)
{
    makeCard({});
    const std::string other = tablePath() + ".other";
    writeText(other, "[software Altri]\nmodule = softhsm2\nmanufacturer = x\nmodel = y\n");
    EXPECT_EQ(diagnoseReaders(other).count(MV_READERS), 0);
    char names[1024] = {};
    long length = sizeof names;
    EXPECT_LT(mvGetReaderName(names, &length), 0);
    EXPECT_EQ(diagnoseReaders("").field(0, MV_TABLE_PATH), other);
    EXPECT_EQ(ToldDiagnosis(mvDiagnoseReaders(nullptr)).field(0, MV_TABLE_PATH), other);
}

TEST_F(Diagnosis, calls_noneThatOpensASessionOrReadsObjects)
{
    makeCard({"aut"});
    proxy().reset();
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    ASSERT_EQ(diagnosis.count(MV_READERS), 1);
    EXPECT_EQ(proxy().count("C_GetTokenInfo"), 2u) << "the card, and SoftHSM2's free slot";
    EXPECT_THAT(proxy().calls, Each(AnyOf("C_Initialize", "C_Finalize", "C_GetSlotList",
                                          "C_GetSlotInfo", "C_GetTokenInfo")));
}

TEST_F(Diagnosis, openSession_staysOpenAndLoggedIn)
{
    makeCard({"aut"});
    const std::string name = reader();
    ASSERT_EQ(open(name), 0) << lastError().text;
    ASSERT_EQ(mvLogin(cardPin), 0);
    const int slot = getSlotBriskoLite();
    proxy().reset();
    const ToldDiagnosis diagnosis = diagnoseReaders(tablePath());
    EXPECT_EQ(diagnosis.reader(MV_READER_NAME), name);
    EXPECT_EQ(diagnosis.reader(MV_READER_ERROR), 0);
    EXPECT_EQ(proxy().count("C_Finalize"), 0u);
    EXPECT_EQ(getSlotBriskoLite(), slot);
    // A login that was lost would make this one succeed.
    EXPECT_NE(mvLogin(cardPin), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(CKR_USER_ALREADY_LOGGED_IN));
    EXPECT_EQ(mvFinalize(), 0);
}

}  // namespace
}  // namespace cardlibs_test
