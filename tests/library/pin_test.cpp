#include "tests/support/library_fixture.h"

#include <gtest/gtest.h>
#include <unistd.h>

using namespace support;

namespace {

const std::string prompt = "Inserire un PIN (8 cifre)\n";

class SetPin : public LibraryTest {
protected:
    PlainRecord settings() { return plain(context[renew_context::settingsRow]); }
};

TEST_F(SetPin, pinGiven_isStoredAsItIs)
{
    startSession();
    setting(renew_context::reader, QStringLiteral("Lettore"));
    for (const char* pin : {"12345678", "1", "123456789", "not digits", "-1", "\xc3\xa0"}) {
        SCOPED_TRACE(pin);
        EXPECT_TRUE(set_pin(&context, QString::fromUtf8(pin)));
        EXPECT_EQ(settings(), (PlainRecord{{"p11_library_path", applicationFolder()},
                                           {"Reader", "Lettore"},
                                           {"Pin", pin}}));
    }
    EXPECT_EQ(log(), "");
}

TEST_F(SetPin, noSettings_settingsRowIsMade)
{
    EXPECT_TRUE(set_pin(&context, QStringLiteral("12345678")));
    EXPECT_EQ(plain(context), (PlainContext{{"SettingsApplicazione", {{"Pin", "12345678"}}}}));
}

TEST_F(SetPin, noPinGiven_answerIsStoredAsRead)
{
    struct Row {
        const char* condition;
        const char* typed;
        int prompts;
        const char* pin;
        const char* rest;
    };
    const Row table[] = {
        {"eight digits", "12345678\n", 1, "12345678", ""},
        {"three digits", "123\n", 1, "123", ""},
        {"leading zeros stay", "00000001\n", 1, "00000001", ""},
        {"all zeros", "00000000\n", 1, "00000000", ""},
        {"largest", "99999999\n", 1, "99999999", ""},
        {"line end of another system", "12345678\r\n", 1, "12345678", ""},
        {"empty line", "\n", 1, "", ""},
        {"end of input", "", 1, "", ""},
        {"line without its end", "12345678", 1, "12345678", ""},
        {"a lone plus", "+\n", 1, "+", ""},
        {"plus and digits", "+1234567\n", 1, "+1234567", ""},
        {"nine digits", "123456789\n12345678\n", 2, "12345678", ""},
        {"far too many digits", "123456789012345678901234567890\n12345678\n", 2, "12345678", ""},
        {"group separators", "12,345,678\n12345678\n", 2, "12345678", ""},
        {"other group separators", "12.345.678\n12345678\n", 2, "12345678", ""},
        {"letters", "abcdefgh\n12345678\n", 2, "12345678", ""},
        {"minus", "-1\n12345678\n", 2, "12345678", ""},
        {"hexadecimal", "0x12\n12345678\n", 2, "12345678", ""},
        {"bytes that are not UTF-8", "1234\xff\n12345678\n", 2, "12345678", ""},
        {"bad answer, then end of input", "letters\n", 2, "", ""},
        {"more lines wait", "12345678\nnext\n", 1, "12345678", "next\n"},
    };
    startSession();
    setting(renew_context::reader, QStringLiteral("Lettore"));
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setting(renew_context::pin, QString());
        answer(row.typed);
        StandardOutput output;
        EXPECT_TRUE(set_pin(&context, QString()));
        std::string expected;
        for (int i = 0; i < row.prompts; ++i)
            expected += prompt;
        EXPECT_EQ(output.text(), expected);
        EXPECT_EQ(settings(), (PlainRecord{{"p11_library_path", applicationFolder()},
                                           {"Reader", "Lettore"},
                                           {"Pin", row.pin}}));
        EXPECT_EQ(input->rest(), row.rest);
    }
    EXPECT_EQ(log(), "");
}

TEST_F(SetPin, emptyAnswerOverAnEarlierPin_replacesIt)
{
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    answer("\n");
    StandardOutput output;
    EXPECT_TRUE(set_pin(&context, QString()));
    EXPECT_EQ(settings()["Pin"], "");
    EXPECT_FALSE(verify_pin(&context));
    EXPECT_EQ(log(), "[*]: Nessun PIN settato...\n");
}

TEST_F(SetPin, standardOutputClosed_answerStillArrives)
{
    answer("12345678\n");
    const StandardOutput output;
    close(STDOUT_FILENO);
    EXPECT_TRUE(set_pin(&context, QString()));
    EXPECT_EQ(settings()["Pin"], "12345678");
}

class VerifyPin : public LibraryTest {
protected:
    std::string initialize() const
    {
        return called("mvInitializeFromATRLite", "Lettore", atrTable(), applicationFolder());
    }

    // The log of a login that the card refused with this message.
    static std::string refusal(const std::string& message)
    {
        return "[*]: " + message + "\n[*]: Errore nella Login con la Smart Card: " + message +
               "\n\n";
    }
};

TEST_F(VerifyPin, pinAccepted_sessionIsClosedAgain)
{
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    const PlainContext before = plain(context);
    setScript({
        call("mvInitializeFromATRLite"),  // the session opens
        call("mvIsCNSINCARD"),            // not a services card
        call("mvIsFERROLUX"),             // not of the family
        call("mvLogin"),                  // accepted
        call("mvFinalize"),
    });
    EXPECT_TRUE(verify_pin(&context));
    EXPECT_EQ(calls(), (std::vector<std::string>{initialize(), "mvIsCNSINCARD()", "mvIsFERROLUX()",
                                                 called("mvLogin", "12345678"), "mvFinalize()"}));
    EXPECT_FALSE(isCNS);
    EXPECT_FALSE(isFerrolux);
    EXPECT_EQ(plain(context), before);
    EXPECT_EQ(log(), "");
}

TEST_F(VerifyPin, textsNotAscii_areHandedOverAsUtf8)
{
    startSession(QString::fromUtf8("Lettore \xc3\xa0"),
                 QString::fromUtf8("p\xc3\xacn\xf0\x9f\x94\x91"));
    ATRini = QString::fromUtf8("/tabelle/\xc3\xa8.ini");
    setScript({call("mvInitializeFromATRLite"), call("mvIsCNSINCARD"), call("mvIsFERROLUX"),
               call("mvLogin"), call("mvFinalize").returning(5)});
    EXPECT_TRUE(verify_pin(&context));
    EXPECT_EQ(calls()[0], called("mvInitializeFromATRLite", "Lettore \xc3\xa0",
                                 "/tabelle/\xc3\xa8.ini", applicationFolder()));
    EXPECT_EQ(calls()[3], called("mvLogin", "p\xc3\xacn\xf0\x9f\x94\x91"));
}

TEST_F(VerifyPin, cardProperties_setTheFlagsAndNeverResetThem)
{
    struct Row {
        const char* condition;
        int cns;
        int ferrolux;
        int login;
        bool isCns;
        bool isOfFerrolux;
    };
    const Row table[] = {
        {"neither", 0, 0, 0, false, false},
        {"services card whose PIN is refused", 1, 0, 0xA0, true, false},
        {"flags stay", 0, 0, 0, true, false},
        {"negative is non-zero", 0, -1, 0, true, true},
        {"both stay", 0, 0, 0xA4, true, true},
    };
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        std::vector<Step> steps{
            call("mvInitializeFromATRLite"), call("mvIsCNSINCARD").returning(row.cns),
            call("mvIsFERROLUX").returning(row.ferrolux), call("mvLogin").returning(row.login)};
        if (row.login != 0) {
            steps.push_back(call("mvLastError"));
            steps.push_back(call("mvLastErrno").returning(row.login));
        }
        steps.push_back(call("mvFinalize"));
        setScript(steps);
        EXPECT_EQ(verify_pin(&context), row.login == 0);
        EXPECT_EQ(isCNS, row.isCns);
        EXPECT_EQ(isFerrolux, row.isOfFerrolux);
    }
}

TEST_F(VerifyPin, settingsIncomplete_cardIsNotTouched)
{
    struct Row {
        const char* condition;
        bool settings;
        const char* reader;  // null: no key
        const char* pin;
        const char* log;
    };
    const Row table[] = {
        {"no settings", false, nullptr, nullptr, "[*]: Nessun lettore settato...\n"},
        {"no reader", true, nullptr, "12345678", "[*]: Nessun lettore settato...\n"},
        {"empty reader", true, "", "12345678", "[*]: Nessun lettore settato...\n"},
        {"neither", true, nullptr, nullptr, "[*]: Nessun lettore settato...\n"},
        {"no PIN", true, "Lettore", nullptr, "[*]: Nessun PIN settato...\n"},
        {"empty PIN", true, "Lettore", "", "[*]: Nessun PIN settato...\n"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        startSession();
        if (!row.settings)
            context.clear();
        if (row.reader != nullptr)
            setting(renew_context::reader, QLatin1String(row.reader));
        if (row.pin != nullptr)
            setting(renew_context::pin, QLatin1String(row.pin));
        EXPECT_FALSE(verify_pin(&context));
        EXPECT_EQ(log(), row.log);
        EXPECT_EQ(calls(), std::vector<std::string>{});
    }
}

TEST_F(VerifyPin, sessionCannotBeOpened_nothingIsLogged)
{
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    for (const int result : {1, -1, 0xBFC}) {
        SCOPED_TRACE(result);
        setScript({call("mvInitializeFromATRLite").returning(result), call("mvFinalize")});
        EXPECT_FALSE(verify_pin(&context));
        EXPECT_EQ(calls(), (std::vector<std::string>{initialize(), "mvFinalize()"}));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
    EXPECT_EQ(log(), "");
}

TEST_F(VerifyPin, pinRefused_logTellsWhyTwice)
{
    struct Row {
        const char* condition;
        int number;
        int textResult;
        const char* text;
        const char* message;
    };
    const Row table[] = {
        {"locked", 0xA4, 0, "CKR_PIN_LOCKED",
         "Il PIN della Smart Card e' bloccato.\n\nUtilizzare la funzione \"Sblocco PIN\" di Brisko "
         "per sbloccare il PIN"},
        {"incorrect", 0xA0, 0, "CKR_PIN_INCORRECT",
         "Il PIN digitato e' errato.\n\nAttenzione: tre tentativi errati bloccano il PIN\n\n"},
        {"invalid", 0xA1, 0, "CKR_PIN_INVALID", "PIN SMARTCARD NON VALIDO"},
        {"locked, no text", 0xA4, 1, "",
         "Il PIN della Smart Card e' bloccato.\n\nUtilizzare la funzione \"Sblocco PIN\" di Brisko "
         "per sbloccare il PIN"},
        {"another number", 0x30, 0, "Errore del dispositivo", "Errore del dispositivo"},
        {"number between", 0xA2, 0, "CKR_PIN_LEN_RANGE", "CKR_PIN_LEN_RANGE"},
        {"number zero", 0, 0, "sconosciuto", "sconosciuto"},
        {"negative number", -0xA4, 0, "negativo", "negativo"},
        {"another number, no text", 0x30, 1, "ignored", ""},
        {"text not ASCII", 0x30, 0, "gi\xe0", "gi\xc3\xa0"},
    };
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    ErrorMessage = QStringLiteral("from before");
    const PlainContext before = plain(context);
    std::string expectedLog;
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setScript({
            call("mvInitializeFromATRLite"),
            call("mvIsCNSINCARD"),
            call("mvIsFERROLUX"),
            call("mvLogin").returning(row.number == 0 ? 1 : row.number),
            call("mvLastError").returning(row.textResult).writing({row.text}),
            call("mvLastErrno").returning(row.number),
            call("mvFinalize"),
        });
        EXPECT_FALSE(verify_pin(&context));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
        expectedLog += refusal(row.message);
        EXPECT_EQ(log(), expectedLog);
        EXPECT_EQ(ErrorMessage, QStringLiteral("from before"));
        EXPECT_EQ(plain(context), before);
    }
}

TEST_F(VerifyPin, pinRefused_onlyTheFirstLineIsFlushed)
{
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
    std::string onDisk;
    setScript({
        call("mvInitializeFromATRLite"),
        call("mvIsCNSINCARD"),
        call("mvIsFERROLUX"),
        call("mvLogin").returning(1),
        call("mvLastError").writing({"testo"}),
        call("mvLastErrno").returning(1),
        call("mvFinalize").observing([&] { onDisk = logOnDisk(); }),
    });
    EXPECT_FALSE(verify_pin(&context));
    EXPECT_EQ(onDisk, "[*]: testo\n");
    EXPECT_EQ(log(), refusal("testo"));
}

}  // namespace
