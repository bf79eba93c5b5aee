// The card-access library's functions on a SoftHSM2 token.

#include "cardlibs/state/card_error.h"
#include "cardlibs/state/shared_state.h"
#include "imports/molvane.h"
#include "imports/tarvelo.h"
#include "tests/cardlibs/card_calls.h"
#include "tests/cardlibs/card_fixture.h"
#include "tools/softcard/card_token.h"

#include <gmock/gmock.h>

#include <cstring>

namespace cardlibs_test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Access : public CardFixture {
protected:
    ~Access() override { mvFinalize(); }

    int readerNames(std::string& names, long capacity = 1024)
    {
        std::vector<char> buffer(static_cast<std::size_t>(capacity) + 8, '\0');
        std::fill_n(buffer.end() - 8, 8, '~');
        long length = capacity;
        const int result = mvGetReaderName(buffer.data(), &length);
        EXPECT_EQ(std::string(buffer.end() - 8, buffer.end()), "~~~~~~~~");
        names = buffer.data();
        return result;
    }

    int open(const std::string& name)
    {
        std::string readerName = name;
        std::string table = tablePath();
        std::string folder;
        return mvInitializeFromATRLite(readerName.data(), table.data(), folder.data());
    }

    int moduleFor(const std::string& name, std::string& module)
    {
        char buffer[64] = {};
        std::string readerName = name;
        std::string table = tablePath();
        const int result = mvGetPKCS11FromATRLite(readerName.data(), buffer, table.data());
        module = buffer;
        return result;
    }
};

TEST_F(Access, readerNames_tokenLabelAndSerialNumberThenBar)
{
    makeCard({});
    std::string names;
    EXPECT_GE(readerNames(names), 0);
    EXPECT_THAT(names, StartsWith("Carta di prova "));
    EXPECT_THAT(names, EndsWith("|"));
    EXPECT_EQ(names.size(), std::strlen("Carta di prova ") + 16 + 1);
}

TEST_F(Access, readerNames_noToken_negativeAndSaysThatTheServiceIsStopped)
{
    std::string names;
    EXPECT_LT(readerNames(names), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::serviceStopped));
    EXPECT_EQ(lastError().result, 0);
}

TEST_F(Access, readerNames_bufferTooSmall_nameLeftOutWhole)
{
    makeCard({});
    std::string names;
    EXPECT_GE(readerNames(names, 20), 0);
    EXPECT_EQ(names, "");
}

TEST_F(Access, readerNames_tokenMadeMeanwhile_isSeen)
{
    std::string names;
    EXPECT_LT(readerNames(names), 0);
    const std::string command = "softhsm2-util --init-token --free --label Nuova --pin 1234 "
                                "--so-pin 12345678 >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_GE(readerNames(names), 0);
    EXPECT_THAT(names, StartsWith("Nuova "));
}

TEST_F(Access, readerNames_tokenModelNotInTable_isNoReader)
{
    makeCard({});
    writeTable("[software Other]\nmodule = softhsm2\nmanufacturer = Other\nmodel = Other\n");
    std::string names;
    EXPECT_LT(readerNames(names), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::serviceStopped));
}

TEST_F(Access, module_knownToken_fileNameOfItsModule)
{
    makeCard({});
    std::string module;
    EXPECT_EQ(moduleFor(reader(), module), 0);
    EXPECT_EQ(module, "libsofthsm2.so");
}

TEST_F(Access, module_tokenModelNotInTable_unknownCard)
{
    makeCard({});
    const std::string name = reader();
    writeTable("[software Other]\nmodule = softhsm2\nmanufacturer = Other\nmodel = Other\n");
    std::string module;
    EXPECT_NE(moduleFor(name, module), 0);
    EXPECT_EQ(lastError().number, 0xBFC);
}

TEST_F(Access, module_noSuchReader_saysSo)
{
    makeCard({});
    std::string module;
    EXPECT_NE(moduleFor("Altro lettore", module), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::readerNotFound));
    EXPECT_THAT(lastError().text, HasSubstr("Altro lettore"));
}

TEST_F(Access, module_missingTable_namesTheFile)
{
    makeCard({});
    const std::string name = reader();
    std::filesystem::remove(tablePath());
    std::string module;
    EXPECT_NE(moduleFor(name, module), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::tableUnreadable));
    EXPECT_THAT(lastError().text, HasSubstr("table.ini"));
}

TEST_F(Access, flags_afterModuleLookUpAlone_asTheTableSays)
{
    makeCard({});
    const std::string name = reader();
    std::string module;
    ASSERT_EQ(moduleFor(name, module), 0);
    EXPECT_EQ(mvIsCNSINCARD(), 0);
    EXPECT_EQ(mvIsFERROLUX(), 0);
    writeTable("[software SoftHSM2]\nmodule = softhsm2\nmanufacturer = SoftHSM project\n"
               "model = SoftHSM v2\ncns = yes\nferrolux = yes\n");
    ASSERT_EQ(moduleFor(name, module), 0);
    EXPECT_NE(mvIsCNSINCARD(), 0);
    EXPECT_NE(mvIsFERROLUX(), 0);
    EXPECT_NE(moduleFor("Altro lettore", module), 0);
    EXPECT_EQ(mvIsCNSINCARD(), 0);
}

TEST_F(Access, session_open_tellsSlotAndIdentity)
{
    makeCard({});
    ASSERT_EQ(open(reader()), 0);
    char description[65] = {};
    char manufacturer[33] = {};
    char model[17] = {};
    char serialNumber[17] = {};
    EXPECT_EQ(mvCheckSmartCard(description, manufacturer, model, serialNumber), 0);
    EXPECT_THAT(description, StartsWith("SoftHSM slot ID 0x"));
    EXPECT_STREQ(manufacturer, "SoftHSM project");
    EXPECT_STREQ(model, "SoftHSM v2");
    EXPECT_EQ(reader(), std::string("Carta di prova ") + serialNumber);
    EXPECT_EQ(mvCNSToBeActivatedLite(getSlotBriskoLite()), 0);
}

TEST_F(Access, session_pinNotInitialised_isToBeActivated)
{
    makeCard({});
    // A token as its maker leaves it: initialised, no user PIN.
    cardlibs::token::Module& module = softcard::startModule();
    CK_SLOT_ID freeSlot = 0;
    for (const CK_SLOT_ID slot : module.slotsWithToken(true))
        if (!module.tokenInfo(slot).has(CKF_TOKEN_INITIALIZED))
            freeSlot = slot;
    std::string label(32, ' ');
    label.replace(0, 6, "Vergin");
    std::string pin = "12345678";
    module.call("C_InitToken", &CK_FUNCTION_LIST::C_InitToken, freeSlot,
                reinterpret_cast<CK_UTF8CHAR*>(pin.data()), CK_ULONG(pin.size()),
                reinterpret_cast<CK_UTF8CHAR*>(label.data()));
    std::string names;
    ASSERT_GE(readerNames(names), 0);
    const std::size_t at = names.find("Vergin");
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(open(names.substr(at, names.find('|', at) - at)), 0);
    EXPECT_EQ(mvCNSToBeActivatedLite(getSlotBriskoLite()), 1);
}

TEST_F(Access, session_notOpen_everyQuestionFails)
{
    makeCard({});
    char text[65] = {};
    EXPECT_EQ(getSlotBriskoLite(), -1);
    EXPECT_EQ(mvCNSToBeActivatedLite(0), -1);
    EXPECT_NE(mvCheckSmartCard(text, text, text, text), 0);
    EXPECT_NE(mvLogin(cardPin), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::noOpenSession));
    EXPECT_EQ(mvFinalize(), 0);
}

TEST_F(Access, session_otherSlotNumber_isAnError)
{
    makeCard({});
    ASSERT_EQ(open(reader()), 0);
    EXPECT_EQ(mvCNSToBeActivatedLite(long{getSlotBriskoLite()} + 1), -1);
    EXPECT_EQ(lastError().number, CKR_SLOT_ID_INVALID);
}

TEST_F(Access, login_rightPin_succeedsAndSecondIsRefused)
{
    makeCard({});
    ASSERT_EQ(open(reader()), 0);
    EXPECT_EQ(mvLogin(cardPin), 0);
    EXPECT_NE(mvLogin(cardPin), 0);
    EXPECT_EQ(lastError().number, CKR_USER_ALREADY_LOGGED_IN);
}

TEST_F(Access, login_wrongPin_pinIncorrectAndSessionUsable)
{
    makeCard({});
    ASSERT_EQ(open(reader()), 0);
    EXPECT_NE(mvLogin(wrongPin), 0);
    EXPECT_EQ(lastError().number, CKR_PIN_INCORRECT);
    EXPECT_EQ(lastError().text.find(wrongPin), std::string::npos);
    EXPECT_EQ(mvLogin(cardPin), 0);
}

TEST_F(Access, login_emptyPin_refusedBeforeTheCard)
{
    makeCard({});
    const std::string name = reader();
    ASSERT_EQ(open(name), 0);
    EXPECT_NE(mvLogin(""), 0);
    EXPECT_EQ(lastError().number, CKR_PIN_LEN_RANGE);
    // SoftHSM2 marks a token after a failed try.
    cardlibs::token::Module& module = cardlibs::token::Module::load("softhsm2");
    for (const CK_SLOT_ID slot : module.slotsWithToken(false))
        EXPECT_FALSE(module.tokenInfo(slot).has(CKF_USER_PIN_COUNT_LOW));
}

TEST_F(Access, session_openedAgain_earlierOneIsClosed)
{
    makeCard({});
    const std::string name = reader();
    ASSERT_EQ(open(name), 0);
    ASSERT_EQ(mvLogin(cardPin), 0);
    ASSERT_EQ(open(name), 0);
    // A login that lived on would make this one fail.
    EXPECT_EQ(mvLogin(cardPin), 0);
    EXPECT_EQ(mvFinalize(), 0);
    EXPECT_EQ(getSlotBriskoLite(), -1);
}

TEST_F(Access, session_noSuchReader_closesTheEarlierOneToo)
{
    makeCard({});
    ASSERT_EQ(open(reader()), 0);
    EXPECT_NE(open("Altro lettore"), 0);
    EXPECT_EQ(getSlotBriskoLite(), -1);
}

TEST_F(Access, lastError_nothingFailed_noneAndZero)
{
    makeCard({});
    ASSERT_EQ(open(reader()), 0);
    const LastError error = lastError();
    EXPECT_NE(error.result, 0);
    EXPECT_EQ(error.number, 0);
    EXPECT_EQ(error.text, "");
}

TEST_F(Access, lastError_failureInTheOtherLibrary_isToldHere)
{
    char buffer[32] = {};
    std::string nothing;
    EXPECT_NE(rinnovo_Card_findFreeCKAID(nothing.data(), nothing.data(), buffer, buffer), 0);
    EXPECT_EQ(lastError().result, 0);
    EXPECT_NE(lastError().number, 0);
    EXPECT_EQ(mvFinalize(), 0);
    EXPECT_NE(lastError().result, 0);
}

TEST_F(Access, lastError_smallBuffer_cutWithNul)
{
    std::string module;
    EXPECT_NE(moduleFor("Altro lettore", module), 0);
    char text[8] = {'~', '~', '~', '~', '~', '~', '~', '~'};
    EXPECT_EQ(mvLastError(text, 5), 0);
    EXPECT_EQ(std::strlen(text), 4u);
    EXPECT_EQ(text[5], '~');
    EXPECT_NE(mvLastError(nullptr, 5), 0);
    EXPECT_NE(mvLastError(text, 0), 0);
}

TEST_F(Access, nullArguments_refusedWithAnError)
{
    long length = 1024;
    EXPECT_LT(mvGetReaderName(nullptr, &length), 0);
    char names[1024] = {};
    EXPECT_LT(mvGetReaderName(names, nullptr), 0);
    EXPECT_NE(mvInitializeFromATRLite(nullptr, nullptr, nullptr), 0);
    EXPECT_NE(mvGetPKCS11FromATRLite(nullptr, names, nullptr), 0);
    EXPECT_NE(mvGetPKCS11FromATRLite(names, nullptr, nullptr), 0);
    EXPECT_NE(mvLogin(nullptr), 0);
    EXPECT_NE(mvCheckSmartCard(nullptr, names, names, names), 0);
    EXPECT_EQ(lastError().number, static_cast<int>(cardlibs::state::fault::invalidArgument));
}

TEST_F(Access, tokenFolderGone_errorThenUsableOnceItIsBack)
{
    makeCard({"aut"});
    const std::string name = reader();
    const auto away = folder().root() / "away";
    std::filesystem::rename(folder().tokens(), away);
    std::filesystem::create_directory(folder().tokens());
    EXPECT_NE(readCerts(name, cardPin).result, 0);
    EXPECT_EQ(lastError().result, 0);
    EXPECT_NE(open(name), 0);
    std::filesystem::remove_all(folder().tokens());
    std::filesystem::rename(away, folder().tokens());
    EXPECT_EQ(readCerts(name, cardPin).result, 0);
    EXPECT_EQ(open(name), 0);
}

}  // namespace
}  // namespace cardlibs_test
