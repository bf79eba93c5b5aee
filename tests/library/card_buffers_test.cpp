// What a card library may do with the texts that it is handed and the arrays that it fills.

#include "tests/support/verification_fixture.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace support;

namespace {

class TextsHandedOver : public VerificationTest {};

TEST_F(TextsHandedOver, moduleLookUpSpoilsThem_sessionOpensWithTheTrueOnes)
{
    std::vector<Step> steps = openedCard();
    steps[0] = steps[0].spoiling();
    setScript(joined(
        steps, {call("mvCheckSmartCard").writing({"a", "b", "c", "13"}), call("mvFinalize")}));
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::accepted);
    EXPECT_EQ(calls()[0], moduleCall());
    EXPECT_EQ(calls()[3], initializeCall());
    EXPECT_EQ(ATRini.toStdString(), atrTable());
}

TEST_F(TextsHandedOver, failedOpenSpoilsThem_secondTryGetsTheTrueOnes)
{
    for (const bool moduleSpoilsToo : {false, true}) {
        SCOPED_TRACE(moduleSpoilsToo);
        const Step module = call("mvGetPKCS11FromATRLite").writing({"libmodule.so"});
        setScript({
            moduleSpoilsToo ? module.spoiling() : module,
            call("mvIsCNSINCARD"),
            call("mvIsFERROLUX"),
            call("mvInitializeFromATRLite").returning(1).spoiling(),
            call("mvFinalize"),
            call("mvInitializeFromATRLite").returning(1).spoiling(),
        });
        EXPECT_EQ(verify_sc_and_reader(&context), card_verification::noSession);
        EXPECT_EQ(calls()[0], moduleCall());
        EXPECT_EQ(calls()[3], initializeCall());
        EXPECT_EQ(calls()[5], initializeCall());
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(TextsHandedOver, pinCheckSpoilsThem_nextOperationGetsTheTrueOnes)
{
    setting(renew_context::pin, QStringLiteral("12345678"));
    expectContextChangedByTest();
    setScript(joined({call("mvInitializeFromATRLite").spoiling(), call("mvIsCNSINCARD"),
                      call("mvIsFERROLUX"), call("mvLogin"), call("mvFinalize")},
                     openedCard()));
    extendScript({call("mvCheckSmartCard").writing({"a", "b", "c", "13"}), call("mvFinalize")});
    EXPECT_TRUE(verify_pin(&context));
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::accepted);
    EXPECT_EQ(calls()[0], initializeCall());
    EXPECT_EQ(calls()[5], moduleCall());
    EXPECT_EQ(calls()[8], initializeCall());
    EXPECT_EQ(ATRini.toStdString(), atrTable());
}

// Filled to the last byte, without a NUL: what no card library should write.
class ArraysFilled : public VerificationTest {
protected:
    static void expectModule()
    {
        EXPECT_EQ(lib[sizeof lib - 1], '\0');
        EXPECT_EQ(std::string(lib, strnlen(lib, sizeof lib)), std::string(63, 'l'));
    }

    static void expectIdentity(const std::string& serialNumber)
    {
        struct Row {
            const char* array;
            std::size_t size;
            std::string text;
        };
        const Row table[] = {
            {szSlotDescription, sizeof szSlotDescription, std::string(64, 's')},
            {szManufacturerID, sizeof szManufacturerID, std::string(32, 'm')},
            {szModel, sizeof szModel, std::string(16, 'o')},
            {szSerialNumber, sizeof szSerialNumber, serialNumber},
        };
        for (const Row& row : table) {
            SCOPED_TRACE(row.text);
            EXPECT_EQ(row.array[row.size - 1], '\0');
            EXPECT_EQ(std::string(row.array, strnlen(row.array, row.size)), row.text);
        }
    }

    static Step fullIdentity(const std::string& serialNumber)
    {
        return call("mvCheckSmartCard")
            .writing(
                {std::string(65, 's'), std::string(33, 'm'), std::string(17, 'o'), serialNumber});
    }

    static std::vector<Step> openedWithFullModuleName()
    {
        std::vector<Step> steps = openedCard();
        steps[0] = call("mvGetPKCS11FromATRLite").writing({std::string(64, 'l')});
        return steps;
    }
};

TEST_F(ArraysFilled, moduleNotFound_nameEndsInItsArray)
{
    setScript({call("mvGetPKCS11FromATRLite").returning(1).writing({std::string(64, 'l')}),
               call("mvLastErrno")});
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::noModule);
    expectModule();
}

TEST_F(ArraysFilled, identityRefused_logHoldsWhatFitsBeforeTheEnd)
{
    setScript(joined(openedWithFullModuleName(),
                     {fullIdentity(std::string(17, '9')).returning(1), call("mvFinalize")}));
    EXPECT_EQ(verify_sc_and_reader(&context), card_verification::noLongerRenewable);
    expectModule();
    expectIdentity(std::string(16, '9'));
    EXPECT_EQ(log(),
              attemptOk +
                  "[*]: Funzionalita' di Rinnovo non supportata per la SmartCard inserita.\n"
                  "[*]: Funzionalita' di Rinnovo non supportata per la SmartCard inserita: \n"
                  "[*]: Slot Description: " +
                  std::string(64, 's') + "\n[*]: Manufacturer ID: " + std::string(32, 'm') +
                  "\n[*]: Model: " + std::string(16, 'o') +
                  "\n[*]: Serial Number: " + std::string(16, '9') + "\n\n");
}

TEST_F(ArraysFilled, identityRead_serialNumberDecidesAsUsual)
{
    struct Row {
        std::string serialNumber;
        int code;
    };
    for (const Row& row :
         {Row{"1301" + std::string(13, '7'), card_verification::accepted},
          Row{"1201" + std::string(13, '7'), card_verification::noLongerSupported}}) {
        SCOPED_TRACE(row.serialNumber);
        setScript(joined(openedWithFullModuleName(),
                         {fullIdentity(row.serialNumber), call("mvFinalize")}));
        EXPECT_EQ(verify_sc_and_reader(&context), row.code);
        expectModule();
        expectIdentity(row.serialNumber.substr(0, 16));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

}  // namespace
