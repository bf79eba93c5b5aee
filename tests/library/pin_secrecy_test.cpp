// Where copies of the PIN may not be: in the log, on standard output, in memory once an operation
// has ended.

#include "tests/support/library_fixture.h"
#include "tests/support/memory_scan.h"

#include <QIntValidator>
#include <QLocale>

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

using namespace support;

namespace {

std::array<char, requestBufferSize> request{};
char certificate[] = "certificate";

struct OperationRow {
    const char* name;
    std::vector<Step> steps;
    std::size_t pinStep;  // the first call that gets the PIN
    std::size_t digits;   // of the longest PIN that the operation takes, or more than enough
    std::function<void(RenewContext*)> run;
};

std::vector<OperationRow> operations()
{
    CardContents card;
    card.pendingKeyAut = 1;
    const auto generate = [](RenewContext* context) {
        EXPECT_EQ(Tarvelo_gen_p10_by_certid(context, QStringLiteral("ID"), request.data()), 1);
    };
    const auto install = [](RenewContext* context) {
        EXPECT_EQ(Tarvelo_install_cert(context, QStringLiteral("ID"), certificate), 1);
    };
    return {
        {"verify_pin, accepted",
         {call("mvInitializeFromATRLite"), call("mvIsCNSINCARD"), call("mvIsFERROLUX"),
          call("mvLogin"), call("mvFinalize")},
         3,
         40,
         [](RenewContext* context) { EXPECT_TRUE(verify_pin(context)); }},
        {"verify_pin, refused",
         {call("mvInitializeFromATRLite"), call("mvIsCNSINCARD"), call("mvIsFERROLUX"),
          call("mvLogin").returning(0xA0), call("mvLastError"), call("mvLastErrno").returning(0xA0),
          call("mvFinalize")},
         3,
         40,
         [](RenewContext* context) { EXPECT_FALSE(verify_pin(context)); }},
        {"fill_sc_objects, with a search for labels",
         {call("rinnovo_Card_readCerts").reading(card),
          call("rinnovo_Card_findFreeCKAID").writing({"DS1", "AUT1"})},
         0,
         8,
         [](RenewContext* context) { EXPECT_EQ(fill_sc_objects(context), 0); }},
        {"fill_sc_objects, failed",
         {call("rinnovo_Card_readCerts").returning(1), call("mvLastError"), call("mvLastErrno")},
         0,
         8,
         [](RenewContext* context) { EXPECT_EQ(fill_sc_objects(context), -86); }},
        {"Tarvelo_gen_p10_by_certid",
         {call("rinnovo_Card_findFreeCKAID").writing({"DS1", "AUT1"}),
          call("rinnovo_Card_createCertRequestAUT")},
         0,
         40,
         generate},
        {"Tarvelo_install_cert",
         {call("rinnovo_Card_findFreeCKAID").writing({"DS1", "AUT1"}),
          call("rinnovo_Card_saveCertAUT")},
         0,
         40,
         install},
    };
}

class PinSecrecy : public LibraryTest {
protected:
    // Qt's validator keeps a copy of the text while it judges it, and frees that unwiped. Whether
    // the copy can still be found depends on the allocator, so it is measured on another text.
    static int copiesLeftByTheValidator()
    {
        const Secret secret;
        QString text = secret.text();
        int position = 0;
        QLocale locale = QLocale::c();
        locale.setNumberOptions(QLocale::RejectGroupSeparator);
        QIntValidator validator(0, 99999999, nullptr);
        validator.setLocale(locale);
        EXPECT_EQ(validator.validate(text, position), QValidator::Acceptable);
        return secret.copiesInMemory();
    }
};

TEST_F(PinSecrecy, copyLeftInFreedMemory_isFoundByTheScan)
{
    const Secret secret;
    EXPECT_EQ(secret.copiesInMemory(), 0);
    const QByteArray copy = secret.text().toUtf8();
    EXPECT_EQ(copy.size(), 8);
    EXPECT_GE(secret.copiesInMemory(), 1);
}

TEST_F(PinSecrecy, operationEnded_noCopyIsLeftInMemory)
{
    for (const OperationRow& row : operations()) {
        SCOPED_TRACE(row.name);
        const Secret secret(row.digits);
        startSession();
        setting(renew_context::reader, QStringLiteral("Lettore"));
        setting(renew_context::pin, secret.text());
        context[QStringLiteral("AUT: 1")] = {{renew_context::renewalId, QStringLiteral("ID")}};
        bool cardSawThePin = false;
        std::vector<Step> steps = row.steps;
        steps[row.pinStep] =
            steps[row.pinStep].observing([&] { cardSawThePin = secret.copiesInMemory() > 0; });
        setScript(steps);
        keepTexts(false);
        row.run(&context);
        EXPECT_TRUE(cardSawThePin);
        EXPECT_EQ(secret.copiesInMemory(), 0);
        const std::string log = fileContents(logPath());
        EXPECT_EQ(log.find(secret.text().toStdString()), std::string::npos);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(PinSecrecy, pinTyped_noCopyOfTheLibraryIsLeft)
{
    const Secret secret;
    startSession();
    input.reset();
    input = std::make_unique<StandardInput>(
        [&secret](int descriptor) { secret.writeLine(descriptor); });
    StandardOutput output;
    EXPECT_TRUE(set_pin(&context, QString()));
    EXPECT_TRUE(context[renew_context::settingsRow][renew_context::pin] == secret.text());
    EXPECT_LE(secret.copiesInMemory(), copiesLeftByTheValidator());
}

TEST_F(PinSecrecy, pinTypedBehindAnotherLine_noCopyOfTheLibraryIsLeft)
{
    const Secret secret;
    startSession();
    input.reset();
    input = std::make_unique<StandardInput>([&secret](int descriptor) {
        EXPECT_EQ(::write(descriptor, "1\n", 2), 2);
        secret.writeLine(descriptor);
    });
    setScript({call("mvGetReaderName").writing({"Alfa|Beta|"})});
    StandardOutput output;
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_TRUE(set_pin(&context, QString()));
    EXPECT_TRUE(context[renew_context::settingsRow][renew_context::pin] == secret.text());
    EXPECT_LE(secret.copiesInMemory(), copiesLeftByTheValidator());
}

TEST_F(PinSecrecy, sessionEnded_contextHoldsNoPin)
{
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    free_renew_system(&context);
    EXPECT_TRUE(context.isEmpty());
}

}  // namespace
