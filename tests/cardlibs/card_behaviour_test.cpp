// Cards that behave as SoftHSM2 never does, played by the PKCS#11 proxy.

#include "cardlibs/state/card_error.h"
#include "imports/molvane.h"
#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

namespace cardlibs_test {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

using softcard::KeyType;
namespace fault = cardlibs::state::fault;

class CardBehaviour : public ProxyFixture {
protected:
    ~CardBehaviour() override { mvFinalize(); }

    int open(const std::string& name)
    {
        std::string readerName = name;
        std::string table = tablePath();
        std::string folder;
        return mvInitializeFromATRLite(readerName.data(), table.data(), folder.data());
    }

    void expectError(unsigned long number)
    {
        EXPECT_EQ(lastError().number, static_cast<int>(number)) << lastError().text;
    }

    static void setText(unsigned char* field, std::size_t size, const std::string& text)
    {
        std::memset(field, ' ', size);
        std::copy_n(text.begin(), std::min(size, text.size()), field);
    }

    // A whole renewal of the only AUT certificate; true when the new one is there alone.
    bool renewAut()
    {
        const auto descriptor = read().aut.at(0);
        const RequestResult made = request(Function::aut, descriptor);
        EXPECT_EQ(made.result, 0) << lastError().text;
        if (made.result != 0)
            return false;
        const int saved = save(Function::aut, descriptor[ckaIdField], issue(made.pem));
        EXPECT_EQ(saved, 0) << lastError().text;
        return saved == 0 && certificates().size() == 1 && workingPairs() == 1 &&
               read().aut.at(0)[serialField] != descriptor[serialField];
    }
};

TEST_F(CardBehaviour, pinRefusals_rawNumberAndOneAttempt)
{
    makeCard({"aut"});
    const std::string name = reader();
    for (const CK_RV answer :
         {CKR_PIN_INCORRECT, CKR_PIN_INVALID, CKR_PIN_LEN_RANGE, CKR_PIN_EXPIRED, CKR_PIN_LOCKED,
          CKR_USER_ALREADY_LOGGED_IN, CKR_USER_PIN_NOT_INITIALIZED, CKR_VENDOR_DEFINED + 7}) {
        SCOPED_TRACE(answer);
        proxy().reset();
        proxy().loginAnswer = answer;
        EXPECT_NE(readCerts(name, cardPin).result, 0);
        expectError(answer);
        EXPECT_EQ(proxy().count("C_Login"), 1u);
        ASSERT_EQ(open(name), 0);
        EXPECT_NE(mvLogin(cardPin), 0);
        expectError(answer);
        EXPECT_EQ(proxy().count("C_Login"), 2u);
        EXPECT_EQ(mvFinalize(), 0);
    }
}

TEST_F(CardBehaviour, pinLockedOrNotInitialised_noTryIsSpent)
{
    makeCard({"aut"});
    const std::string name = reader();
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.flags |= CKF_USER_PIN_LOCKED; };
    EXPECT_NE(readCerts(name, cardPin).result, 0);
    expectError(CKR_PIN_LOCKED);
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) {
        info.flags &= ~CK_FLAGS(CKF_USER_PIN_INITIALIZED);
    };
    EXPECT_NE(findFreeLabels(name, cardPin).result, 0);
    expectError(CKR_USER_PIN_NOT_INITIALIZED);
    EXPECT_EQ(proxy().count("C_Login"), 0u);
}

TEST_F(CardBehaviour, pinWithOneTryLeft_oneAttemptPerCallAndNoneForAnEmptyPin)
{
    makeCard({"aut"});
    const std::string name = reader();
    const auto descriptor = read().aut.at(0);
    ASSERT_EQ(labels().result, 0);
    proxy().reset();
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) {
        info.flags |= CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY;
    };
    proxy().loginAnswer = CKR_PIN_INCORRECT;
    EXPECT_NE(createRequest(Function::aut, "AUT1", wrongPin, descriptor[ckaIdField],
                            descriptor[subjectField])
                  .result,
              0);
    expectError(CKR_PIN_INCORRECT);
    EXPECT_EQ(proxy().count("C_Login"), 1u);
    EXPECT_NE(readCerts(name, "").result, 0);
    EXPECT_EQ(proxy().count("C_Login"), 1u);
    // The right PIN is still taken.
    proxy().loginAnswer.reset();
    EXPECT_EQ(readCerts(name, cardPin).result, 0) << lastError().text;
}

TEST_F(CardBehaviour, pinToBeChanged_notActivated)
{
    makeCard({});
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.flags |= CKF_USER_PIN_TO_BE_CHANGED; };
    ASSERT_EQ(open(reader()), 0);
    EXPECT_EQ(mvCNSToBeActivatedLite(getSlotBriskoLite()), 1);
    proxy().failingName = "C_GetTokenInfo";
    proxy().failingCall = proxy().count("C_GetTokenInfo") + 1;
    EXPECT_EQ(mvCNSToBeActivatedLite(getSlotBriskoLite()), -1);
    expectError(CKR_DEVICE_ERROR);
}

TEST_F(CardBehaviour, identityFieldsFull_copiedWhole)
{
    makeCard({});
    const std::string name = reader();
    proxy().changeSlotInfo = [](CK_SLOT_INFO& info, bool) {
        setText(info.slotDescription, 64, std::string(64, 'S'));
    };
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) {
        setText(info.manufacturerID, 32, std::string(32, 'M'));
        setText(info.model, 16, std::string(16, 'O'));
    };
    writeTable("[software x]\nmodule = " PROXY_FILE "\nmanufacturer = " + std::string(32, 'M') +
               "\nmodel = " + std::string(16, 'O') + "\n");
    ASSERT_EQ(open(name), 0);
    char description[65] = {};
    char manufacturer[33] = {};
    char model[17] = {};
    char serialNumber[17] = {};
    ASSERT_EQ(mvCheckSmartCard(description, manufacturer, model, serialNumber), 0);
    EXPECT_EQ(description, std::string(64, 'S'));
    EXPECT_EQ(manufacturer, std::string(32, 'M'));
    EXPECT_EQ(model, std::string(16, 'O'));
    EXPECT_EQ(std::strlen(serialNumber), 16u);
}

TEST_F(CardBehaviour, labelWithBarsAndAccents_nameIsPlain)
{
    makeCard({});
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) {
        setText(info.label, 32, "Carta|di Nicol\xC3\xB2");
        setText(info.serialNumber, 16, "1205000000000001");
    };
    char names[1024] = {};
    long length = sizeof names;
    ASSERT_EQ(mvGetReaderName(names, &length), 1);
    EXPECT_STREQ(names, "Carta_di Nicol__ 1205000000000001|");
}

TEST_F(CardBehaviour, twoTokensOfOneName_refused)
{
    makeCard({});
    const std::string command = "softhsm2-util --init-token --free --label Altra --pin 1234 "
                                "--so-pin 12345678 >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    startProxy();
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) {
        setText(info.label, 32, "Uguale");
        setText(info.serialNumber, 16, "1");
    };
    EXPECT_NE(open("Uguale 1"), 0);
    expectError(fault::readerAmbiguous);
}

TEST_F(CardBehaviour, writeProtected_refusedBeforeTheLogin)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    ASSERT_EQ(labels().result, 0);
    proxy().reset();
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.flags |= CKF_WRITE_PROTECTED; };
    EXPECT_NE(createRequest(Function::aut, "AUT1", cardPin, descriptor[ckaIdField],
                            descriptor[subjectField])
                  .result,
              0);
    expectError(CKR_TOKEN_WRITE_PROTECTED);
    EXPECT_EQ(proxy().count("C_Login"), 0u);
    EXPECT_EQ(proxy().count("C_GenerateKeyPair"), 0u);
}

TEST_F(CardBehaviour, whatTheCardTellsItCannot_refusedBeforeAKeyIsMade)
{
    makeCard({"aut"}, KeyType::rsa2048);
    const auto descriptor = read().aut.at(0);
    const auto before = objectNames();
    const auto refused = [&](unsigned long number) {
        const RequestResult result = request(Function::aut, descriptor);
        EXPECT_NE(result.result, 0);
        EXPECT_EQ(result.pem, "");
        expectError(number);
        EXPECT_EQ(proxy().count("C_GenerateKeyPair"), 0u);
        EXPECT_EQ(objectNames(), before);
        proxy().reset();
    };
    proxy().missingMechanisms = {CKM_RSA_PKCS_KEY_PAIR_GEN};
    refused(CKR_MECHANISM_INVALID);
    proxy().changeMechanismInfo = [](CK_MECHANISM_INFO& info) { info.ulMaxKeySize = 1024; };
    refused(CKR_KEY_SIZE_RANGE);
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.ulFreePrivateMemory = 1000; };
    refused(CKR_DEVICE_MEMORY);
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.ulFreePublicMemory = 1000; };
    refused(CKR_DEVICE_MEMORY);
}

TEST_F(CardBehaviour, noSigningMechanism_refused)
{
    makeCard({"aut"}, KeyType::rsa2048);
    const auto descriptor = read().aut.at(0);
    proxy().missingMechanisms = {CKM_SHA256_RSA_PKCS, CKM_RSA_PKCS};
    EXPECT_NE(request(Function::aut, descriptor).result, 0);
    expectError(CKR_MECHANISM_INVALID);
    EXPECT_EQ(proxy().count("C_GenerateKeyPair"), 0u);
}

TEST_F(CardBehaviour, memoryTooSmallForTheCertificate_refusedUnchanged)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    const auto before = objectNames();
    proxy().changeTokenInfo = [](CK_TOKEN_INFO& info) { info.ulFreePublicMemory = 600; };
    EXPECT_NE(save(Function::aut, descriptor[ckaIdField], issued), 0);
    expectError(fault::issuedTooLarge);
    EXPECT_EQ(objectNames(), before);
}

TEST_F(CardBehaviour, memoryFullOnlyWhenWritten_refusedUnchangedAndRepeatable)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    proxy().failure = CKR_DEVICE_MEMORY;
    proxy().failingCall = 1;
    const auto before = objectNames();
    proxy().failingName = "C_GenerateKeyPair";
    EXPECT_NE(request(Function::aut, descriptor).result, 0);
    expectError(CKR_DEVICE_MEMORY);
    EXPECT_EQ(objectNames(), before);
    const RequestResult made = request(Function::aut, descriptor);
    ASSERT_EQ(made.result, 0) << lastError().text;
    const std::string issued = issue(made.pem);
    const auto requested = objectNames();
    proxy().failingName = "C_CreateObject";
    EXPECT_NE(save(Function::aut, descriptor[ckaIdField], issued), 0);
    expectError(CKR_DEVICE_MEMORY);
    EXPECT_EQ(objectNames(), requested);
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(objectNames().size(), 3u);
    EXPECT_EQ(proxy().failuresPlayed, 2u);
}

TEST_F(CardBehaviour, noHashingMechanism_rawOneSigns)
{
    makeCard({"aut"}, KeyType::rsa2048);
    proxy().missingMechanisms = {CKM_SHA256_RSA_PKCS};
    EXPECT_TRUE(renewAut());
}

TEST_F(CardBehaviour, hashingMechanismListedButRefused_rawOneSigns)
{
    for (const KeyType type : {KeyType::rsa2048, KeyType::p384}) {
        SCOPED_TRACE(static_cast<int>(type));
        folder().clear();
        folder().prepare();
        makeCard({"aut"}, type);
        proxy().reset();
        proxy().brokenMechanisms = {CKM_SHA256_RSA_PKCS, CKM_ECDSA_SHA384};
        EXPECT_TRUE(renewAut());
    }
}

TEST_F(CardBehaviour, keyThatWantsThePinEachTime_getsIt)
{
    makeCard({"aut"});
    proxy().wantsPinEachTime = true;
    EXPECT_TRUE(renewAut());
    // The request's signature, the new key's trial, and the proof that the key about to be
    // destroyed is the replaced certificate's.
    EXPECT_EQ(proxy().count("C_Login(context)"), 3u);
}

TEST_F(CardBehaviour, privateKeysThatHideTheirPublicPart_foundByTheirPublicKeys)
{
    makeCard({"aut"}, KeyType::rsa2048);
    proxy().hidesPublicParts = true;
    EXPECT_TRUE(renewAut());
}

TEST_F(CardBehaviour, sameIdentifierOnHiddenKeys_toldApartByATrialSignature)
{
    makeCard({});
    // EC private keys of SoftHSM2 hide their point; these three share one CKA_ID.
    for (const char* kind : {"aut", "pra"}) {
        auto order = softcard::orderFor(softcard::findKind(kind), 0, KeyType::p256, 30);
        order.id = {1, 2, 3};
        addCertificate(order);
    }
    auto pending = softcard::orderFor(softcard::findKind("aut"), 5, KeyType::p256, 30);
    pending.id = {1, 2, 3};
    pending.subject = {{"2.5.4.3", "Un altro"}};
    addKey(pending);
    const ReadResult result = read();
    EXPECT_THAT(result.aut, SizeIs(1));
    EXPECT_THAT(result.pra, SizeIs(1));
    EXPECT_NE(result.pendingAut, 0);
    EXPECT_EQ(result.autLabel, "AUT5");
    EXPECT_GT(proxy().count("C_Sign"), 0u);
}

TEST_F(CardBehaviour, identifiersChosenByTheToken_linkedByKindAndSubject)
{
    makeCard({"aut", "pra"});
    proxy().choosesIdentifiers = true;
    const ReadResult before = read();
    const RequestResult made = request(Function::aut, before.aut.at(0));
    ASSERT_EQ(made.result, 0) << lastError().text;
    EXPECT_EQ(read().aut.at(0)[8], "AUT1");
    const std::size_t objects = objectNames().size();
    ASSERT_EQ(request(Function::aut, before.aut.at(0)).result, 0);
    EXPECT_EQ(objectNames().size(), objects);
    ASSERT_EQ(save(Function::aut, before.aut[0][ckaIdField], issue(made.pem)), 0)
        << lastError().text;
    const ReadResult after = read();
    EXPECT_THAT(after.aut, SizeIs(1));
    EXPECT_THAT(after.pra, SizeIs(1));
    EXPECT_NE(after.aut[0][serialField], before.aut[0][serialField]);
    EXPECT_EQ(workingPairs(), 2u);
}

TEST_F(CardBehaviour, identifiersChosenByTheTokenAndTwoAlike_installationRefused)
{
    makeCard({"aut", "aut"});
    proxy().choosesIdentifiers = true;
    const ReadResult before = read();
    const RequestResult made = request(Function::aut, before.aut.at(0));
    ASSERT_EQ(made.result, 0) << lastError().text;
    const auto objects = objectNames();
    EXPECT_NE(save(Function::aut, before.aut[0][ckaIdField], issue(made.pem)), 0);
    expectError(fault::linkAmbiguous);
    EXPECT_EQ(objectNames(), objects);
}

TEST_F(CardBehaviour, certificateReadBackDiffers_takenBack)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    const auto before = objectNames();
    ASSERT_EQ(labels().result, 0);
    proxy().corruptsReadBack = true;
    EXPECT_NE(saveCertificate(Function::aut, cardPin, descriptor[ckaIdField], "AUT1", issued), 0);
    expectError(fault::writtenDiffers);
    proxy().reset();
    EXPECT_EQ(objectNames(), before);
}

TEST_F(CardBehaviour, keyThatSignsWrongly_newCertificateTakenBackAndOldOneStays)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    const auto before = objectNames();
    ASSERT_EQ(labels().result, 0);
    proxy().corruptsSignatures = true;
    EXPECT_NE(saveCertificate(Function::aut, cardPin, descriptor[ckaIdField], "AUT1", issued), 0);
    expectError(fault::keyDoesNotSign);
    EXPECT_EQ(objectNames(), before);
    EXPECT_NE(request(Function::aut, descriptor).result, 0);
    expectError(fault::requestNotValid);
}

TEST_F(CardBehaviour, removalFails_textTellsToRepeat)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    proxy().failingName = "C_DestroyObject";
    proxy().failingCall = 2;
    EXPECT_NE(save(Function::aut, descriptor[ckaIdField], issued), 0);
    expectError(CKR_DEVICE_ERROR);
    EXPECT_THAT(lastError().text, HasSubstr("ripetere l'installazione"));
    proxy().reset();
    EXPECT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(objectNames().size(), 3u);
}

TEST_F(CardBehaviour, removal_privateKeyThenPublicKeyThenCertificate)
{
    makeCard({"aut"});
    const auto descriptor = read().aut.at(0);
    const std::string issued = issue(request(Function::aut, descriptor).pem);
    std::vector<std::string> left;
    std::size_t destroyed = 0;
    proxy().before = [&](const std::string& name) {
        if (name != "C_DestroyObject")
            return;
        ++destroyed;
        std::string kinds;
        for (const std::string& object : objectNames())
            if (object.find(" AUT0 ") != std::string::npos)
                kinds += object.substr(0, 4) + " ";
        left.push_back(kinds);
    };
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issued), 0) << lastError().text;
    EXPECT_EQ(left, (std::vector<std::string>{"cert priv publ ", "cert publ ", "cert "}));
}

// A card answers in tens of milliseconds, and a person waits for each of these calls.
TEST_F(CardBehaviour, costs_callsAndLoginsOfARenewalWhateverElseLiesOnTheCard)
{
    makeCard({"aut", "pra", "cns"});
    char names[1024] = {};
    long length = sizeof names;
    // Hosts list the readers first, which makes the module look at them.
    ASSERT_EQ(mvGetReaderName(names, &length), 1);
    const std::string name = reader();
    std::size_t pairs = 3;
    for (const std::size_t wanted : {3u, 6u, 12u}) {
        SCOPED_TRACE(wanted);
        // Certified, pending and foreign ones in turn.
        for (; pairs < wanted; ++pairs) {
            const int number = static_cast<int>(pairs) + 1;
            if (pairs % 3 == 0)
                addCertificate("pra", number);
            else
                addKey(pairWithoutCertificate(
                    pairs % 3 == 1 ? "AUT" + std::to_string(number) : "ssh", number));
        }
        const auto counted = [&](std::size_t logins, auto&& operation) {
            proxy().calls.clear();
            operation();
            EXPECT_EQ(proxy().count("C_Login"), logins);
            EXPECT_EQ(lastError().number, 0) << lastError().text;
            return proxy().calls.size();
        };
        ReadResult card;
        EXPECT_LE(counted(1, [&] { card = readCerts(name, cardPin); }), 16 + 3 * wanted);
        const auto& descriptor = card.aut.at(0);
        RequestResult made;
        EXPECT_LE(counted(2,
                          [&] {
                              const LabelResult free = findFreeLabels(name, cardPin);
                              made =
                                  createRequest(Function::aut, free.aut, cardPin,
                                                descriptor[ckaIdField], descriptor[subjectField]);
                          }),
                  40 + 3 * wanted);
        const std::string issued = issue(made.pem);
        EXPECT_LE(counted(2,
                          [&] {
                              const LabelResult free = findFreeLabels(name, cardPin);
                              saveCertificate(Function::aut, cardPin, descriptor[ckaIdField],
                                              free.aut, issued);
                          }),
                  50 + 3 * wanted);
    }
}

TEST_F(CardBehaviour, onceDone_noSessionIsOpen)
{
    makeCard({"aut"});
    EXPECT_TRUE(renewAut());
    EXPECT_EQ(proxy().count("C_OpenSession"), proxy().count("C_CloseSession"));
    EXPECT_EQ(proxy().count("C_Login"), proxy().count("C_Logout"));
}

}  // namespace
}  // namespace cardlibs_test
