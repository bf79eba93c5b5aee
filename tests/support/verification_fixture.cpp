#include "verification_fixture.h"

namespace support {

const std::string attempt = "[*]: Tentativo di comunicazione con la Smart Card...";
const std::string attemptOk = attempt + "[*]: OK\n";

std::vector<Step> openedCard(int cns, int ferrolux)
{
    return {
        call("mvGetPKCS11FromATRLite").writing({"libmodule.so"}),
        call("mvIsCNSINCARD").returning(cns),
        call("mvIsFERROLUX").returning(ferrolux),
        call("mvInitializeFromATRLite"),
        call("getSlotBriskoLite").returning(3),
        call("mvCNSToBeActivatedLite"),
    };
}

std::vector<Step> joined(std::vector<Step> first, const std::vector<Step>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void VerificationTest::SetUp()
{
    LibraryTest::SetUp();
    startSession();
    setting(renew_context::reader, QStringLiteral("Lettore"));
    m_before = plain(context);
}

void VerificationTest::TearDown()
{
    EXPECT_EQ(plain(context), m_before);
    EXPECT_EQ(ErrorMessage, QString());
    LibraryTest::TearDown();
}

std::string VerificationTest::moduleCall(const std::string& reader)
{
    return called("mvGetPKCS11FromATRLite", reader, atrTable());
}

std::string VerificationTest::initializeCall(const std::string& reader)
{
    return called("mvInitializeFromATRLite", reader, atrTable(), applicationFolder());
}

}  // namespace support
