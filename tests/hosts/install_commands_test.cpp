// install, renew and resume of the whole program on a software card.

#include "card_commands_fixture.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

using console::ExitCode;
using hosts::CardCommands;
using hosts::text;
using hosts::Words;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Installation : public CardCommands {
protected:
    // Makes the request; its PEM.
    std::string requested() const
    {
        const QJsonObject document = answer(unattended({"request"}), ExitCode::done);
        return text(document["requests"][0]["renewal"]["request"]);
    }

    // As if the card had been in another machine when the request was made.
    void forgetRecords() const
    {
        std::filesystem::remove_all(m_card.file("home/.brisko/renewals"));
    }

    // A certificate for the request's key and holder that the card cannot take: for another use.
    std::string mistaken(const std::string& request) const
    {
        m_card.write("mistaken.req", request);
        m_card.write("mistaken.ext", "keyUsage = critical, nonRepudiation\n");
        const hosts::ProgramEnd made = m_card.shell(
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "
            "/CN=Careless "
            "-keyout " +
            m_card.file("careless.key") + " -out " + m_card.file("careless.pem") +
            " 2>/dev/null && openssl x509 -req -days 900 -in " + m_card.file("mistaken.req") +
            " -CA " + m_card.file("careless.pem") + " -CAkey " + m_card.file("careless.key") +
            " -extfile " + m_card.file("mistaken.ext") + " -out " + m_card.file("mistaken.pem"));
        EXPECT_EQ(made.exitCode, 0) << made.errors;
        return m_card.file("mistaken.pem");
    }

    static std::vector<std::string> stepsOf(const QJsonObject& document)
    {
        std::vector<std::string> steps;
        for (const QJsonValue step : document["plan"][0]["steps"].toArray()) {
            steps.push_back(text(step));
        }
        return steps;
    }
};

}  // namespace

TEST_F(Installation, nothingRequested_nothingToInstall)
{
    const auto before = cardObjects();
    answer(unattended({"install"}), ExitCode::nothingPending);
    answer(unattended({"resume"}), ExitCode::nothingPending);
    m_card.write("some.pem", "no certificate");
    answer(unattended({"install", "--issued", m_card.file("some.pem")}), ExitCode::nothingPending);
    EXPECT_EQ(cardObjects(), before);
}

TEST_F(Installation, requestedOnly_waitsForTheCertificate)
{
    requested();
    const auto before = cardObjects();
    answer(unattended({"install"}), ExitCode::nothingPending);
    answer(unattended({"resume"}), ExitCode::comeBackLater);
    EXPECT_EQ(cardObjects(), before);
    EXPECT_EQ(records().size(), 1U);
}

TEST_F(Installation, keptCertificate_isInstalledWithoutTheAuthority)
{
    requested();
    answer({"submit", "--ca", "command:" + m_card.authority()}, ExitCode::done);
    const QJsonObject document = answer(unattended({"install"}), ExitCode::done);
    EXPECT_THAT(stepsOf(document),
                ElementsAre("use-kept-certificate", "write-certificate", "remove-replaced"));
    EXPECT_EQ(text(document["renewals"][0]["renewed"]["validUntil"]), renewedEnd());
    expectAllRenewed();
}

TEST_F(Installation, fileOnTheMachineOfTheRequest_isInstalled)
{
    const std::string file = issued(requested());
    const QJsonObject document = answer(unattended({"install", "--issued", file}), ExitCode::done);
    EXPECT_EQ(stepsOf(document)[2], "read-issued-file");
    expectAllRenewed();
}

TEST_F(Installation, derFileOnAnotherMachine_isInstalled)
{
    const std::string file = issued(requested());
    const std::string der = m_card.file("issued.der");
    ASSERT_EQ(m_card.shell("openssl x509 -outform DER -in " + file + " -out " + der).exitCode, 0);
    answer(unattended({"install", "--issued", der}), ExitCode::done, otherHome());
    forgetRecords();
    expectAllRenewed();
}

TEST_F(Installation, resumeOnAnotherMachine_asksTheAuthorityForTheSameKey)
{
    requested();
    answer(byAuthority({"resume"}), ExitCode::done, otherHome());
    // The machine of the request learns from the card that nothing is left to do.
    answer(byAuthority({"resume"}), ExitCode::nothingPending);
    forgetRecords();
    expectAllRenewed();
}

TEST_F(Installation, fileThatIsNoneOrMissing_changesNothing)
{
    requested();
    const auto before = cardObjects();
    m_card.write("text.pem", "no certificate");
    answer(unattended({"install", "--issued", m_card.file("text.pem")}),
           ExitCode::certificateRefused);
    answer(unattended({"install", "--issued", m_card.file("none.pem")}), ExitCode::fileFailed);
    answer(unattended({"install", "--issued", m_card.authorityCertificate()}),
           ExitCode::certificateRefused);
    answer(unattended({"resume", "--issued", m_card.file("none.pem")}), ExitCode::fileFailed);
    EXPECT_EQ(cardObjects(), before);
    EXPECT_EQ(records().size(), 1U);
}

TEST_F(Installation, fileForAnotherHolder_isRefusedByTheCard)
{
    const std::string request = requested();
    const std::string wrong = mistaken(request);
    const QJsonObject refused =
        answer(unattended({"install", "--issued", wrong}), ExitCode::installationFailed);
    EXPECT_NE(text(refused["exit"]["detail"]), "");
    // The right one is taken afterwards, although the wrong one was kept.
    answer(unattended({"install", "--issued", issued(request)}), ExitCode::done);
    expectAllRenewed();
}

TEST_F(Installation, keptCertificateThatTheCardRefuses_theAuthorityIsAskedAgain)
{
    const std::string wrong = mistaken(requested());
    answer({"submit", "--ca", "command:cat " + wrong}, ExitCode::done);
    // Without an authority the refusal stands.
    answer(unattended({"resume"}), ExitCode::installationFailed);
    const hosts::ProgramEnd end = run(byAuthority({"resume"}));
    expectEnd(end, ExitCode::done);
    EXPECT_THAT(end.output, HasSubstr("asked again"));
    expectAllRenewed();
}

TEST_F(Installation, authorityThatAnsweredBefore_isNotAskedByResume)
{
    requested();
    answer({"submit", "--ca", "command:" + m_card.authority()}, ExitCode::done);
    answer(unattended({"resume", "--ca", "command:false"}), ExitCode::done);
    expectAllRenewed();
}

TEST_F(Installation, resume_offersTheSameKeyToTheAuthority)
{
    requested();
    const QJsonArray waiting = listed();
    const QJsonObject document = answer(byAuthority({"resume"}), ExitCode::done);
    EXPECT_EQ(stepsOf(document)[0], "use-waiting-key");
    EXPECT_FALSE(text(waiting[0].toObject()["pendingKey"]).empty());
    expectAllRenewed();
}

TEST_F(Installation, oldCertificateGone_resumeInstallsTheKeptOne)
{
    requested();
    answer({"submit", "--ca", "command:" + m_card.authority()}, ExitCode::done);
    m_card.removeOriginalObjects();
    EXPECT_EQ(text(listed()[0].toObject()["verdict"]), "recovery");
    const QJsonObject document = answer(unattended({"resume"}), ExitCode::done);
    EXPECT_THAT(stepsOf(document), ElementsAre("use-kept-certificate", "write-certificate"));
    EXPECT_EQ(text(document["renewals"][0]["certificate"]["verdict"]), "recovery");
    expectAllRenewed();
}

TEST_F(Installation, oldCertificateGoneAndNothingKept_comesBackWithTheFile)
{
    const std::string request = requested();
    m_card.removeOriginalObjects();
    answer(byAuthority({"resume"}), ExitCode::comeBackLater);
    answer(unattended({"resume", "--issued", issued(request)}), ExitCode::done, otherHome());
    EXPECT_EQ(text(listed()[0].toObject()["validUntil"]), renewedEnd());
    expectPairsOnCard(1);
}

TEST_F(Installation, recordThatCannotBeRead_isToldAndHidesNoOther)
{
    requested();
    const std::string broken =
        m_card.file("home/.brisko/renewals/" + std::string(64, 'a') + ".json");
    std::ofstream(broken) << "{ broken";
    const hosts::ProgramEnd submitted = run({"submit", "--ca", "command:" + m_card.authority()});
    expectEnd(submitted, ExitCode::done, broken);
    const hosts::ProgramEnd resumed = run(unattended({"resume"}));
    expectEnd(resumed, ExitCode::done, broken);
    ASSERT_EQ(records().size(), 1U);
    ASSERT_TRUE(std::filesystem::remove(broken));
    expectAllRenewed();
}

TEST_F(Installation, recordsOfOtherCards_areLeftAlone)
{
    requested();
    const auto kept = records();
    const hosts::SoftwareCard other(daysLeft);
    const hosts::Environment otherCard = {
        {"SOFTHSM2_CONF", other.environment().at("SOFTHSM2_CONF")}};
    answer({"resume", "--yes", "--pin-file", other.file("card/pin")}, ExitCode::nothingPending,
           otherCard);
    EXPECT_EQ(records(), kept);
}
