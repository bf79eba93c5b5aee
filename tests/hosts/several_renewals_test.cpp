// Several certificates in one run: one that fails or has to wait does not stop the others.

#include "card_commands_fixture.h"

#include <gmock/gmock.h>

using console::ExitCode;
using hosts::CardCommands;
using hosts::text;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class SeveralRenewals : public CardCommands {
protected:
    SeveralRenewals()
        : CardCommands("aut,pra,cns")
    {
    }

    // An authority that does something else for the second request that it gets.
    std::string authorityButForTheSecond(const std::string& otherwise) const
    {
        const std::string count = m_card.file("count");
        return m_card.script("authority", "echo x >> " + count + "\nif [ $(wc -l < " + count +
                                              ") = 2 ]; then " + otherwise + "; fi\nexec " +
                                              TARVELO_SOFTCARD + " issue " + m_card.file("card") +
                                              " --not-after \"$1\"") +
               " {not-after}";
    }

    static std::vector<std::string> ends(const QJsonObject& document)
    {
        std::vector<std::string> names;
        for (const QJsonValue renewal : document["renewals"].toArray()) {
            names.push_back(text(renewal["exit"]["name"]));
        }
        return names;
    }
};

}  // namespace

TEST_F(SeveralRenewals, all_areRenewedInOneRun)
{
    const QJsonObject document = answer(byAuthority({"renew", "--all"}), ExitCode::done);
    EXPECT_THAT(ends(document), ElementsAre("done", "done", "done"));
    expectAllRenewed(3);
    answer(byAuthority({"renew", "--all"}), ExitCode::nothingToRenew);
}

TEST_F(SeveralRenewals, oneFails_theOthersAreRenewed)
{
    const std::string authority = authorityButForTheSecond("echo not today >&2; exit 3");
    const QJsonObject document = answer(
        unattended({"renew", "--all", "--ca", "command:" + authority}), ExitCode::someFailed);
    EXPECT_THAT(ends(document), ElementsAre("done", "authority-failed", "done"));
    EXPECT_THAT(text(document["renewals"][1]["exit"]["detail"]), HasSubstr("not today"));
    EXPECT_TRUE(document["renewals"][1]["renewed"].isNull());
    EXPECT_EQ(records().size(), 1U);
    // Only what is left.
    EXPECT_THAT(ends(answer(byAuthority({"resume"}), ExitCode::done)), ElementsAre("done"));
    expectAllRenewed(3);
}

TEST_F(SeveralRenewals, certificateOfAnotherKey_failsAlone)
{
    const std::string authority = authorityButForTheSecond(
        "exec openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
        "-keyout /dev/null -subj /CN=Stranger 2> /dev/null");
    const hosts::ProgramEnd end =
        run(unattended({"renew", "--all", "--ca", "command:" + authority}));
    expectEnd(end, ExitCode::someFailed, "1 of 3 not finished");
    EXPECT_THAT(hosts::unbroken(end.output), HasSubstr("for another key"));
    expectEnd(run(byAuthority({"resume"})), ExitCode::done);
    expectAllRenewed(3);
}

TEST_F(SeveralRenewals, allByHand_waitForTheirCertificates)
{
    const QJsonObject document = answer(unattended({"renew", "--all"}), ExitCode::comeBackLater);
    EXPECT_THAT(ends(document),
                ElementsAre("come-back-later", "come-back-later", "come-back-later"));
    EXPECT_EQ(records().size(), 3U);
    // Nothing is renewed twice: --all takes up the same keys.
    answer(byAuthority({"renew", "--all"}), ExitCode::done);
    expectAllRenewed(3);
}

TEST_F(SeveralRenewals, keptCertificates_areInstalledTogether)
{
    answer(unattended({"request", "--all"}), ExitCode::done);
    answer({"submit", "--ca", "command:" + m_card.authority()}, ExitCode::done);
    EXPECT_THAT(ends(answer(unattended({"install"}), ExitCode::done)),
                ElementsAre("done", "done", "done"));
    expectAllRenewed(3);
}

TEST_F(SeveralRenewals, resumeOfOne_leavesTheOthers)
{
    const QJsonObject made = answer(unattended({"request", "--all"}), ExitCode::done);
    const std::string wanted = text(made["requests"][1]["renewal"]["id"]);
    const QJsonObject document =
        answer(byAuthority({"resume", "--renewal", wanted}), ExitCode::done);
    ASSERT_THAT(ends(document), ElementsAre("done"));
    EXPECT_EQ(text(document["renewals"][0]["certificate"]["kind"]), "signature");
    EXPECT_EQ(records().size(), 2U);
    EXPECT_EQ(records().count(wanted + ".json"), 0U);
}

TEST_F(SeveralRenewals, fileOnAnotherMachine_needsTheCertificateNamed)
{
    const QJsonObject made = answer(unattended({"request", "--all"}), ExitCode::done);
    const std::string file = issued(text(made["requests"][2]["renewal"]["request"]));
    const auto before = cardObjects();
    answer(unattended({"install", "--issued", file}), ExitCode::choiceNeeded, otherHome());
    EXPECT_EQ(cardObjects(), before);
    // Named wrongly, the key tells.
    answer(unattended({"install", "--issued", file, "--certificate", "1"}),
           ExitCode::certificateRefused, otherHome());
    answer(unattended({"install", "--issued", file, "--certificate", "3"}), ExitCode::done,
           otherHome());
    // The machine of the requests knows which one the file is for.
    const std::string second =
        issued(text(made["requests"][1]["renewal"]["request"]), "second.pem");
    const QJsonObject document =
        answer(unattended({"install", "--issued", second}), ExitCode::done);
    EXPECT_EQ(text(document["renewals"][0]["certificate"]["kind"]), "signature");
}
