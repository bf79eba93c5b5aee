#include "tests/support/verification_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

using namespace support;

namespace {

class VerifyCard : public VerificationTest {};

TEST_F(VerifyCard, cardAccepted_identityIsLeftInTheVariables)
{
    setScript(joined(openedCard(),
                     {
                         call("mvCheckSmartCard")
                             .writing({"Slot 0", "Manufacturer", "Model X", "1301000000000001"}),
                         call("mvFinalize"),
                     }));
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::accepted);
    EXPECT_EQ(calls(), (std::vector<std::string>{
                           moduleCall(),
                           "mvIsCNSINCARD()",
                           "mvIsFERROLUX()",
                           initializeCall(),
                           "getSlotBriskoLite()",
                           "mvCNSToBeActivatedLite(3)",
                           "mvCheckSmartCard()",
                           "mvFinalize()",
                       }));
    EXPECT_STREQ(lib, "libmodule.so");
    EXPECT_STREQ(szSlotDescription, "Slot 0");
    EXPECT_STREQ(szManufacturerID, "Manufacturer");
    EXPECT_STREQ(szModel, "Model X");
    EXPECT_STREQ(szSerialNumber, "1301000000000001");
    EXPECT_FALSE(isCNS);
    EXPECT_FALSE(isFerrolux);
    EXPECT_EQ(logOnDisk(), attemptOk);
}

TEST_F(VerifyCard, settingsIncomplete_arraysAreZeroedAndTheCardIsNotTouched)
{
    for (const bool emptyReader : {false, true}) {
        SCOPED_TRACE(emptyReader);
        startSession();
        context.clear();
        if (emptyReader) {
            setting(renew_context::reader, QStringLiteral(""));
            setting(renew_context::pin, QStringLiteral("12345678"));
        }
        expectContextChangedByTest();
        for (char* text : {lib, szSlotDescription, szManufacturerID, szModel, szSerialNumber})
            text[0] = 'x';
        EXPECT_EQ(verify_sc_and_reader(&context), card_verification::noReader);
        for (const char* text : {lib, szSlotDescription, szManufacturerID, szModel, szSerialNumber})
            EXPECT_STREQ(text, "");
        EXPECT_EQ(log(), "[*]: Nessun lettore settato...\n");
        EXPECT_EQ(calls(), std::vector<std::string>{});
    }
}

TEST_F(VerifyCard, readerKeyMissing_isRefused)
{
    setting(renew_context::reader, QString());
    expectContextChangedByTest();
    EXPECT_EQ(verify_sc_and_reader(&context), -99);
    EXPECT_EQ(log(), "[*]: Nessun lettore settato...\n");
}

TEST_F(VerifyCard, arrays_areZeroedOverTheirWholeLength)
{
    std::fill(std::begin(lib), std::end(lib), 'x');
    std::fill(std::begin(szSlotDescription), std::end(szSlotDescription), 'x');
    std::fill(std::begin(szManufacturerID), std::end(szManufacturerID), 'x');
    std::fill(std::begin(szModel), std::end(szModel), 'x');
    std::fill(std::begin(szSerialNumber), std::end(szSerialNumber), 'x');
    // The scripted library itself checks that what it gets is zeroed.
    setScript(joined(openedCard(), {call("mvCheckSmartCard").writing({"a", "b", "c", "13"}),
                                    call("mvFinalize")}));
    EXPECT_EQ(verify_sc_and_reader(&context), 0);
}

TEST_F(VerifyCard, noModule_codeDependsOnTheErrorNumber)
{
    struct Row {
        int result;
        int number;
        int code;
    };
    const Row table[] = {
        {1, 0xBFC, card_verification::unknownAtr}, {-1, 0xBFC, card_verification::unknownAtr},
        {1, 0xBFB, card_verification::noModule},   {-1, 0, card_verification::noModule},
        {2, -0xBFC, card_verification::noModule},
    };
    std::string expectedLog;
    for (const Row& row : table) {
        SCOPED_TRACE(row.number);
        setScript({
            call("mvGetPKCS11FromATRLite").returning(row.result),
            call("mvLastErrno").returning(row.number),
        });
        EXPECT_EQ(verify_sc_and_reader(&context), row.code);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
        expectedLog += attempt + "[*]: Fallito\n";
        EXPECT_EQ(logOnDisk(), expectedLog);
    }
    EXPECT_FALSE(isCNS);
}

TEST_F(VerifyCard, resultCodes_areThoseOfTheContract)
{
    EXPECT_EQ(static_cast<int>(card_verification::unknownAtr), -97);
    EXPECT_EQ(static_cast<int>(card_verification::noModule), -96);
}

TEST_F(VerifyCard, cardProperties_setTheFlagsAndNeverResetThem)
{
    struct Row {
        int cns;
        int ferrolux;
        bool isCns;
        bool isOfFerrolux;
    };
    const Row table[] = {
        {0, 0, false, false}, {7, 0, true, false}, {0, -1, true, true}, {0, 0, true, true}};
    for (const Row& row : table) {
        setScript(
            joined(openedCard(row.cns, row.ferrolux),
                   {call("mvCheckSmartCard").writing({"a", "b", "c", "13"}), call("mvFinalize")}));
        EXPECT_EQ(verify_sc_and_reader(&context), 0);
        EXPECT_EQ(isCNS, row.isCns);
        EXPECT_EQ(isFerrolux, row.isOfFerrolux);
    }
}

TEST_F(VerifyCard, cardProperties_areSetEvenWhenNoSessionOpens)
{
    setScript({
        call("mvGetPKCS11FromATRLite").writing({"libmodule.so"}),
        call("mvIsCNSINCARD").returning(1), call("mvIsFERROLUX").returning(1),
        call("mvInitializeFromATRLite").returning(1),  // fails
        call("mvFinalize"),
        call("mvInitializeFromATRLite").returning(2),  // fails again
    });
    EXPECT_EQ(verify_sc_and_reader(&context), -95);
    EXPECT_TRUE(isCNS);
    EXPECT_TRUE(isFerrolux);
}

TEST_F(VerifyCard, firstOpenFails_secondIsTriedWithoutALine)
{
    setScript({
        call("mvGetPKCS11FromATRLite").writing({"libmodule.so"}),
        call("mvIsCNSINCARD"),
        call("mvIsFERROLUX"),
        call("mvInitializeFromATRLite").returning(1),  // fails
        call("mvFinalize"),
        call("mvInitializeFromATRLite"),  // opens
        call("getSlotBriskoLite").returning(-2),
        call("mvCNSToBeActivatedLite").returning(2),
        call("mvCheckSmartCard").writing({"a", "b", "c", "1301"}),
        call("mvFinalize"),
    });
    EXPECT_EQ(verify_sc_and_reader(&context), 0);
    EXPECT_EQ(calls()[3], initializeCall());
    EXPECT_EQ(calls()[5], initializeCall());
    EXPECT_EQ(calls()[7], "mvCNSToBeActivatedLite(-2)");
    EXPECT_EQ(log(), attemptOk);
}

TEST_F(VerifyCard, bothOpensFail_fourLinesAndNoSecondClose)
{
    setScript({
        call("mvGetPKCS11FromATRLite").writing({"libmodule.so"}),
        call("mvIsCNSINCARD"),
        call("mvIsFERROLUX"),
        call("mvInitializeFromATRLite").returning(1),
        call("mvFinalize"),
        call("mvInitializeFromATRLite").returning(-1),
    });
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::noSession);
    EXPECT_EQ(static_cast<int>(card_verification::noSession), -95);
    EXPECT_STREQ(lib, "libmodule.so");
    EXPECT_STREQ(szSerialNumber, "");
    EXPECT_EQ(log(),
              attemptOk +
                  "[*]: Errore nell'Inizializzazione di una sessione con la Smart Card \n"
                  "[*]: Ricordiamo che per Smart Card o Token USB con numero di serie 1401.., "
                  "1402.., 1501...\n"
                  "[*]: e' necessario installare il software \"CardOS API\" (versione 2.4.1.5 o "
                  "superiore).\n"
                  "[*]: Errore nell'Inizializzazione di una sessione con la Smart Card.\n\n");
}

TEST_F(VerifyCard, notActivated_isRefusedBeforeTheIdentityIsRead)
{
    std::string logAtClose;
    std::vector<Step> steps = openedCard();
    steps.back() = call("mvCNSToBeActivatedLite").returning(1);
    steps.push_back(call("mvFinalize").observing([&] { logAtClose = log(); }));
    setScript(steps);
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::notActivated);
    EXPECT_EQ(static_cast<int>(card_verification::notActivated), -93);
    EXPECT_EQ(logAtClose, attemptOk);
    EXPECT_EQ(log(), attemptOk +
                         "[*]: Smart Card NON ATTIVA\n"
                         "e' necessario attivare la Smart Card prima di procedere con il rinnovo\n"
                         "[*]: Controllo attivazione: Smart Card NON ATTIVA.\n\n");
    EXPECT_STREQ(szSerialNumber, "");
}

TEST_F(VerifyCard, activationUnknown_errorTextIsLoggedTwice)
{
    struct Row {
        int textResult;
        const char* text;
        const char* shown;
    };
    std::string expectedLog;
    for (const Row& row : {Row{0, "errore della carta", "errore della carta"},
                           Row{1, "ignored", ""}, Row{0, "gi\xe0", "gi\xc3\xa0"}}) {
        SCOPED_TRACE(row.shown);
        std::vector<Step> steps = openedCard();
        steps.back() = call("mvCNSToBeActivatedLite").returning(-1);
        steps.push_back(call("mvLastError").returning(row.textResult).writing({row.text}));
        steps.push_back(call("mvLastErrno").returning(5));
        steps.push_back(call("mvFinalize"));
        setScript(steps);
        EXPECT_EQ(verify_sc_and_reader(&context), card_verification::activationUnknown);
        expectedLog +=
            attemptOk + "[*]: Impossibile effettuare l'operazione Verifica Smart Card! " +
            row.shown + "[*]: mvCNSToBeActivatedLite (controllo attivazione) errore: " + row.shown +
            "\n\n";
        EXPECT_EQ(log(), expectedLog);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
    EXPECT_EQ(static_cast<int>(card_verification::activationUnknown), -94);
}

TEST_F(VerifyCard, identityCannotBeRead_whatThereIsIsLogged)
{
    const std::string heading =
        "[*]: Funzionalita' di Rinnovo non supportata per la SmartCard inserita.\n"
        "[*]: Funzionalita' di Rinnovo non supportata per la SmartCard inserita: \n";
    std::string expectedLog;
    for (const bool leftSomething : {false, true}) {
        SCOPED_TRACE(leftSomething);
        std::vector<std::string> left;
        if (leftSomething)
            left = {"Slot", "Maker", "Model", "1205"};
        else
            left = {"", "", "", ""};
        setScript(joined(openedCard(), {call("mvCheckSmartCard").returning(-1).writing(left),
                                        call("mvFinalize")}));
        EXPECT_EQ(verify_sc_and_reader(&context), card_verification::noLongerRenewable);
        expectedLog += attemptOk + heading + "[*]: Slot Description: " + left[0] +
                       "\n[*]: Manufacturer ID: " + left[1] + "\n[*]: Model: " + left[2] +
                       "\n[*]: Serial Number: " + left[3] + "\n\n";
        EXPECT_EQ(log(), expectedLog);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
    EXPECT_EQ(static_cast<int>(card_verification::noLongerRenewable), -92);
}

TEST_F(VerifyCard, activationAnswers_otherThanOneAndMinusOneGoOn)
{
    for (const int answer : {0, 2, -2, 100}) {
        SCOPED_TRACE(answer);
        std::vector<Step> steps = openedCard();
        steps.back() = call("mvCNSToBeActivatedLite").returning(answer);
        setScript(joined(steps, {call("mvCheckSmartCard").writing({"a", "b", "c", "13"}),
                                 call("mvFinalize").returning(9)}));
        EXPECT_EQ(verify_sc_and_reader(&context), 0);
    }
}

TEST_F(VerifyCard, longReaderName_moduleCallGetsTheFirst255Bytes)
{
    for (const int length : {254, 255, 256, 300}) {
        SCOPED_TRACE(length);
        const std::string name(static_cast<std::size_t>(length), 'r');
        setting(renew_context::reader, QString::fromStdString(name));
        expectContextChangedByTest();
        setScript(joined(openedCard(), {call("mvCheckSmartCard").writing({"a", "b", "c", "13"}),
                                        call("mvFinalize")}));
        EXPECT_EQ(verify_sc_and_reader(&context), 0);
        EXPECT_EQ(calls()[0], moduleCall(name.substr(0, 255)));
        EXPECT_EQ(calls()[3], initializeCall(name));
    }
}

TEST_F(VerifyCard, readerNameNotAscii_isHandedOverAsUtf8)
{
    setting(renew_context::reader, QString::fromUtf8("Lettore \xc3\xa0"));
    expectContextChangedByTest();
    setScript(joined(openedCard(), {call("mvCheckSmartCard").writing({"a", "b", "c", "13"}),
                                    call("mvFinalize")}));
    EXPECT_EQ(verify_sc_and_reader(&context), 0);
    EXPECT_EQ(calls()[0], moduleCall("Lettore \xc3\xa0"));
    EXPECT_EQ(calls()[3], initializeCall("Lettore \xc3\xa0"));
}

}  // namespace
