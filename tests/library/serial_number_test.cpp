// What follows from the beginning of a card's serial number.

#include "tests/support/verification_fixture.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

const std::string newCard =
    "Si prega di rivolgersi al piu' vicino ufficio di Registrazione per richiedere una nuova Smart "
    "Card.";

class SerialNumber : public VerificationTest {};

TEST_F(SerialNumber, beginning_decides)
{
    struct Row {
        const char* serialNumber;
        int code;
        std::string lines;
        // Which of the lines are there when the session is closed.
        std::string linesAtClose;
    };
    const std::string unknown = "[*]: Non e' stato possibile determinare il seriale della Smart "
                                "Card inserita.\nRiprovare la "
                                "procedura di rinnovo scollegando e ricollegando successivamente "
                                "il lettore di Smart Card.\n";
    const std::string noLongerSupported =
        "[*]: N.B: le Smart Card con il numero di serie che comincia con 1201...non sono piu' "
        "supportate\n" +
        newCard + "\n";
    const std::string noLongerRenewable =
        "[*]: N.B: le Smart Card con il numero di serie che comincia con 1202...\nnon sono piu' "
        "rinnovabili" +
        newCard + "\n";
    const std::string keySize = "[*]: N.B: Per le Smart Card con il numero di serie che comincia "
                                "con 1205...Il rinnovo deve "
                                "necessariamente rinnovare chiavi a 2048 bit";
    const Row table[] = {
        {"", -90, unknown, ""},
        {"1201000000000001", -91, noLongerSupported, ""},
        {"1201", -91, noLongerSupported, ""},
        {"1202000000000001", -92, noLongerRenewable, ""},
        {"1202", -92, noLongerRenewable, ""},
        {"1205000000000001", 0, keySize, keySize},
        {"1205", 0, keySize, keySize},
        {"1203000000000001", 0, "", ""},
        {"120", 0, "", ""},
        {"1", 0, "", ""},
        {" 1201", 0, "", ""},
        {"0012010000000001", 0, "", ""},
        {"1401000000000001", 0, "", ""},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.serialNumber);
        std::string logAtClose;
        startSession();
        setting(renew_context::reader, QStringLiteral("Lettore"));
        setScript(joined(openedCard(),
                         {call("mvCheckSmartCard").writing({"a", "b", "c", row.serialNumber}),
                          call("mvFinalize").observing([&] { logAtClose = log(); })}));
        EXPECT_EQ(verify_sc_and_reader(&context), row.code);
        EXPECT_EQ(logAtClose, attemptOk + row.linesAtClose);
        EXPECT_EQ(log(), attemptOk + row.lines);
        EXPECT_STREQ(szSerialNumber, row.serialNumber);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
    EXPECT_EQ(static_cast<int>(card_verification::serialNumberUnknown), -90);
    EXPECT_EQ(static_cast<int>(card_verification::noLongerSupported), -91);
}

TEST_F(SerialNumber, keySizeNote_nextLineFollowsOnTheSameTextLine)
{
    setScript(joined(openedCard(), {call("mvCheckSmartCard").writing({"a", "b", "c", "1205"}),
                                    call("mvFinalize"), call("mvGetReaderName").returning(-1)}));
    EXPECT_EQ(verify_sc_and_reader(&context), 0);
    EXPECT_FALSE(set_reader(&context, QString()));
    EXPECT_EQ(log(), attemptOk +
                         "[*]: N.B: Per le Smart Card con il numero di serie che comincia con "
                         "1205...Il rinnovo deve necessariamente rinnovare chiavi a 2048 bit"
                         "[*]: Nessun lettore trovato...\n");
}

}  // namespace
