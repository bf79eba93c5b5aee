// list, request, submit and log of the whole program on a software card.

#include "card_commands_fixture.h"
#include "certificate_maker.h"
#include "hosts/console/record_store.h"
#include "json_schema.h"

#include <QDateTime>
#include <QJsonDocument>

#include <gmock/gmock.h>
#include <sys/stat.h>

using console::ExitCode;
using hosts::CardCommands;
using hosts::text;
using hosts::Words;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class ListAndRequest : public CardCommands {
protected:
    std::string publicKeyOf(const std::string& request) const
    {
        const hosts::ProgramEnd end = m_card.shell("openssl req -verify -noout -pubkey", request);
        EXPECT_EQ(end.exitCode, 0) << end.errors;
        return end.output;
    }
};

class SeveralKinds : public CardCommands {
protected:
    SeveralKinds()
        : CardCommands("aut,pra,cns")
    {
    }
};

}  // namespace

TEST_F(SeveralKinds, list_tellsEachCertificateAndTheCard)
{
    const QJsonObject document = answer(withPin({"list"}), ExitCode::done);
    EXPECT_THAT(text(document["card"]["model"]), StartsWith("SoftHSM"));
    EXPECT_THAT(text(document["card"]["reader"]),
                HasSubstr(text(document["card"]["serialNumber"])));
    const QJsonArray certificates = document["certificates"].toArray();
    ASSERT_EQ(certificates.size(), 3);
    const char* kinds[] = {"authentication", "signature", "cns"};
    const char* names[] = {"AUT: 1", "PRA: 1", "CNS: 1"};
    const std::string end = QDateTime::currentDateTimeUtc()
                                .date()
                                .addDays(daysLeft)
                                .toString(Qt::ISODate)
                                .toStdString();
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(kinds[i]);
        const QJsonValue certificate = certificates[i];
        EXPECT_EQ(certificate["number"].toInt(), i + 1);
        EXPECT_EQ(text(certificate["kind"]), kinds[i]);
        EXPECT_EQ(text(certificate["row"]), names[i]);
        EXPECT_EQ(text(certificate["validUntil"]), end);
        EXPECT_EQ(certificate["daysLeft"].toInt(), daysLeft);
        EXPECT_EQ(text(certificate["verdict"]), "to-renew");
        EXPECT_EQ(certificate["canBeRenewed"].toBool(), true);
        EXPECT_EQ(text(certificate["expectedEnd"]), renewedEnd());
        EXPECT_EQ(text(certificate["holder"]), "Valdestri Nicolò");
        EXPECT_TRUE(certificate["pendingKey"].isNull());
    }
}

TEST_F(ListAndRequest, list_emptyCard_isNoFailure)
{
    m_card.removeOriginalObjects();
    EXPECT_EQ(answer(withPin({"list"}), ExitCode::done)["certificates"].toArray().size(), 0);
    EXPECT_THAT(run(withPin({"list"})).output, HasSubstr("none"));
}

TEST_F(ListAndRequest, list_refusedPin_tellsNothingOfTheCard)
{
    m_card.write("wrong", m_card.pin() == "00000000" ? "11111111" : "00000000");
    const QJsonObject document =
        answer({"list", "--pin-file", m_card.file("wrong")}, ExitCode::pinRefused);
    EXPECT_FALSE(document.contains("card"));
    EXPECT_FALSE(document.contains("certificates"));
}

TEST_F(ListAndRequest, usageErrors_putNoDocument)
{
    const Words wrong[] = {
        {"list", "--json", "--pin", "12345678"},
        {"list", "--json", "--pin-file", "a", "--pin-env", "B"},
        {"list", "--json", "--pin-file", "a", "--pin-fd", "3"},
        {"list", "--json", "--pin-fd", "3", "--pin-env", "B"},
        {"renew", "--json", "--all", "--certificate", "1"},
        {"renew", "--json", "--issued", "a", "--ca", "command:b"},
        {"no-such-command", "--json"},
        {"list", "submit", "--json"},
    };
    for (const Words& arguments : wrong) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const hosts::ProgramEnd end = run(arguments);
        expectEnd(end, ExitCode::usage, "tarvelo-renew --help");
        EXPECT_EQ(end.output, "");
    }
}

TEST_F(ListAndRequest, request_keepsARecordForItsOwnerAlone)
{
    const QJsonObject document = answer(unattended({"request"}), ExitCode::done);
    ASSERT_EQ(document["requests"].toArray().size(), 1);
    const QJsonValue renewal = document["requests"][0]["renewal"];
    EXPECT_EQ(text(renewal["state"]), "requested");
    EXPECT_EQ(text(renewal["expectedEnd"]), renewedEnd());
    EXPECT_EQ(renewal["replaces"]["serialNumber"], document["certificates"][0]["serialNumber"]);
    EXPECT_NE(publicKeyOf(text(renewal["request"])), "");

    const auto kept = records();
    ASSERT_EQ(kept.size(), 1U);
    const auto& [name, content] = *kept.begin();
    EXPECT_EQ(name, text(renewal["id"]) + ".json");
    EXPECT_EQ(hosts::schemaComplaint("record.schema.json", content), "");
    EXPECT_THAT(content, Not(HasSubstr(m_card.pin())));
    struct stat status = {};
    const std::string path = m_card.file("home/.brisko/renewals/" + name);
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_FALSE(listed()[0].toObject()["pendingKey"].isNull());
}

TEST_F(ListAndRequest, requestTwice_usesTheSameKeyAndRecord)
{
    const QJsonObject first = answer(unattended({"request"}), ExitCode::done);
    const QJsonObject second = answer(unattended({"request"}), ExitCode::done);
    const QJsonValue before = first["requests"][0]["renewal"];
    const QJsonValue after = second["requests"][0]["renewal"];
    EXPECT_EQ(publicKeyOf(text(before["request"])), publicKeyOf(text(after["request"])));
    EXPECT_EQ(before["id"], after["id"]);
    EXPECT_EQ(before["requestedAt"], after["requestedAt"]);
    EXPECT_EQ(records().size(), 1U);
    EXPECT_EQ(text(second["plan"][0]["steps"][0]), "use-waiting-key");
}

TEST_F(ListAndRequest, requestWithoutJson_goesToTheScreenOrTheFile)
{
    const hosts::ProgramEnd shown = run(unattended({"request"}));
    expectEnd(shown, ExitCode::done);
    const auto begin = shown.output.find("-----BEGIN CERTIFICATE REQUEST-----");
    ASSERT_NE(begin, std::string::npos) << shown.output;

    const std::string file = m_card.file("request.pem");
    const hosts::ProgramEnd saved = run(unattended({"request", "--save-request", file}));
    expectEnd(saved, ExitCode::done);
    EXPECT_THAT(saved.output, Not(HasSubstr("-----BEGIN")));
    EXPECT_THAT(saved.output, HasSubstr(file));
    EXPECT_EQ(publicKeyOf(m_card.contentOf("request.pem")),
              publicKeyOf(shown.output.substr(begin)));
}

TEST_F(ListAndRequest, requestFileThatCannotBeWritten_isToldAndTheRequestIsKept)
{
    const std::string missing = m_card.file("no-such-folder/request.pem");
    const QJsonObject document =
        answer(unattended({"request", "--save-request", missing}), ExitCode::fileFailed);
    EXPECT_THAT(text(document["exit"]["detail"]), HasSubstr(missing));
    EXPECT_EQ(records().size(), 1U);
    expectEnd(run(byAuthority({"resume"})), ExitCode::done);
    expectAllRenewed();
}

TEST_F(SeveralKinds, requestAll_makesOneForEach)
{
    const QJsonObject document = answer(unattended({"request", "--all"}), ExitCode::done);
    EXPECT_EQ(document["requests"].toArray().size(), 3);
    EXPECT_EQ(document["plan"].toArray().size(), 3);
    EXPECT_EQ(records().size(), 3U);
    const QJsonArray now = listed();
    ASSERT_EQ(now.size(), 3);
    for (const QJsonValue& certificate : now) {
        EXPECT_FALSE(certificate["pendingKey"].isNull());
    }
}

TEST_F(SeveralKinds, requestAllIntoOneFile_isRefusedBeforeTheCardChanges)
{
    const auto before = cardObjects();
    const std::string file = m_card.file("request.pem");
    answer(unattended({"request", "--all", "--save-request", file}), ExitCode::usage);
    EXPECT_EQ(cardObjects(), before);
    EXPECT_TRUE(records().empty());
}

TEST_F(ListAndRequest, submit_needsNoCard)
{
    answer({"submit"}, ExitCode::nothingPending, withoutCard());
    answer(unattended({"request"}), ExitCode::done);

    const QJsonObject byHand = answer({"submit"}, ExitCode::comeBackLater, withoutCard());
    EXPECT_EQ(text(byHand["renewals"][0]["renewal"]["state"]), "requested");

    const Words submit = {"submit", "--ca", "command:" + m_card.authority()};
    const QJsonObject issued = answer(submit, ExitCode::done, withoutCard());
    EXPECT_EQ(text(issued["renewals"][0]["renewal"]["state"]), "issued");

    // The certificate is there: the authority is not asked again.
    const QJsonObject again =
        answer({"submit", "--ca", "command:false"}, ExitCode::done, withoutCard());
    EXPECT_EQ(text(again["renewals"][0]["renewal"]["state"]), "issued");
    expectEnd(run(unattended({"install"})), ExitCode::done);
    expectAllRenewed();
}

TEST_F(ListAndRequest, submit_refusedByTheAuthority_keepsTheRequest)
{
    answer(unattended({"request"}), ExitCode::done);
    const auto before = records();
    const QJsonObject failed = answer({"submit", "--ca", "command:sh -c 'echo closed >&2; exit 4'"},
                                      ExitCode::authorityFailed);
    EXPECT_THAT(text(failed["exit"]["detail"]), HasSubstr("closed"));
    answer({"submit", "--ca", "command:echo nothing"}, ExitCode::authorityFailed);
    // Nothing but how far it came.
    const auto kept = [](const std::map<std::string, std::string>& files) {
        EXPECT_EQ(files.size(), 1U);
        return QJsonDocument::fromJson(QByteArray::fromStdString(files.begin()->second)).object();
    };
    EXPECT_EQ(text(kept(records())["state"]), "submitted");
    EXPECT_EQ(kept(records())["request"], kept(before)["request"]);
}

TEST_F(SeveralKinds, submit_takesTheRenewalThatIsNamed)
{
    const QJsonObject made = answer(unattended({"request", "--all"}), ExitCode::done);
    const std::string second = text(made["requests"][1]["renewal"]["id"]);
    const QJsonObject document = answer(
        {"submit", "--ca", "command:" + m_card.authority(), "--renewal", second}, ExitCode::done);
    ASSERT_EQ(document["renewals"].toArray().size(), 1);
    EXPECT_EQ(text(document["renewals"][0]["renewal"]["id"]), second);

    answer({"submit", "--renewal", "xyz"}, ExitCode::nothingPending);
    const QJsonObject rest =
        answer({"submit", "--ca", "command:" + m_card.authority()}, ExitCode::done);
    EXPECT_EQ(rest["renewals"].toArray().size(), 3);
}

TEST_F(ListAndRequest, renewalNamedByDigitsOfSeveral_isRefused)
{
    // Sixteen first digits: seventeen records have two with the same.
    const console::RecordStore store(QString::fromStdString(m_card.file("home/.brisko")));
    std::map<QChar, QString> seen;
    QString shared;
    while (shared.isEmpty()) {
        const hosts::Key key = hosts::newKey();
        const console::RenewalRecord record = console::recordOfRequest(
            hosts::requestFor(key.get(), key.get()), QDateTime::currentDateTimeUtc());
        store.save(record);
        if (!seen.emplace(record.publicKeyDigest[0], record.publicKeyDigest).second) {
            shared = record.publicKeyDigest.left(1);
        }
    }
    const auto before = records();
    const QJsonObject refused =
        answer({"submit", "--ca", "command:false", "--renewal", shared.toStdString()},
               ExitCode::choiceNeeded);
    EXPECT_THAT(text(refused["exit"]["nextStep"]), HasSubstr("more digits"));
    answer(unattended({"resume", "--renewal", shared.toStdString()}), ExitCode::choiceNeeded);
    EXPECT_EQ(records(), before);
}

TEST_F(ListAndRequest, log_givesItsLastLines)
{
    answer({"log"}, ExitCode::fileFailed);
    run(withPin({"list"}));
    const QJsonObject document = answer({"log", "--lines", "3"}, ExitCode::done);
    EXPECT_EQ(document["lines"].toArray().size(), 3);
    EXPECT_THAT(text(document["path"]), HasSubstr(m_card.file("home")));
    EXPECT_THAT(run({"log"}).output, HasSubstr(text(document["lines"][2])));
}

TEST_F(ListAndRequest, homeThatHoldsNoLog_leavesTheDocumentAlone)
{
    // The library's log then goes to standard output.
    const hosts::Environment environment = {{"HOME", "/dev/null"}};
    const QJsonObject document = answer(withPin({"list"}), ExitCode::done, environment);
    EXPECT_EQ(document["certificates"].toArray().size(), 1);
    const auto before = cardObjects();
    answer(unattended({"request"}), ExitCode::fileFailed, environment);
    EXPECT_EQ(cardObjects(), before);
}
