// Renewals on real tokens through EST and CMP servers: good ones, ones that make the person come
// back, and hostile ones, after which the key on the card waits and the renewal is finished.

#include "hosts/console/exit_code.h"
#include "software_card.h"
#include "tests/enrolment/cmp_fixture.h"
#include "tests/enrolment/est_server.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using console::ExitCode;
using hosts::ProgramEnd;
using hosts::SoftwareCard;
using testing::HasSubstr;
using trial::Received;
using trial::Reply;
using trial::reply;

namespace {

// The policy of the certificate on the card.
constexpr char policy[] = "1.3.76.36.1.1.10";

int keptRecords(const SoftwareCard& card)
{
    const std::filesystem::path folder = card.file("home/.brisko/renewals");
    if (!std::filesystem::exists(folder)) {
        return 0;
    }
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder),
                                          std::filesystem::directory_iterator()));
}

// The objects on the card, as a program sees them that knows nothing of renewals.
int objectsOn(const SoftwareCard& card, const std::string& type)
{
    const ProgramEnd listed =
        card.shell("CARD_PIN=$(cat " + card.file("card/pin") +
                   ") pkcs11-tool --module " SOFTHSM2_MODULE " --login --pin env:CARD_PIN"
                   " --list-objects --type " +
                   type);
    EXPECT_EQ(listed.exitCode, 0) << listed.errors;
    int count = 0;
    for (std::size_t at = 0; (at = listed.output.find(" Object", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

ProgramEnd run(const SoftwareCard& card, const std::string& command, const std::string& authority)
{
    return card.renewUnattended(
        {command, "--ca-file", card.file("authorities.ini"), "--ca", authority});
}

void expectEnd(const ProgramEnd& end, ExitCode code)
{
    EXPECT_EQ(end.exitCode, static_cast<int>(code)) << end.output << end.errors;
}

void expectRenewed(const SoftwareCard& card, const ProgramEnd& end)
{
    expectEnd(end, ExitCode::done);
    EXPECT_EQ(keptRecords(card), 0);
    EXPECT_EQ(objectsOn(card, "cert"), 1);
    EXPECT_EQ(objectsOn(card, "privkey"), 1);
}

// The old certificate with its key, the new key, and the record: everything to go on with.
void expectWaiting(const SoftwareCard& card)
{
    EXPECT_EQ(keptRecords(card), 1);
    EXPECT_EQ(objectsOn(card, "cert"), 1);
    EXPECT_EQ(objectsOn(card, "privkey"), 2);
}

void note(const std::string& way, const std::string& answer, const ProgramEnd& end)
{
    const auto& entry = console::entryOf(static_cast<ExitCode>(end.exitCode));
    std::cout << way << " | " << answer << " | " << entry.name
              << " | renewed afterwards: " << (testing::Test::HasFailure() ? "no" : "yes") << "\n";
}

struct EstRow {
    std::string name;
    // What the server answers to the request of the card's key.
    std::function<Reply(const trial::EstServer&)> answer;
    ExitCode code = ExitCode::authorityFailed;
};

Reply certificates(const std::vector<QByteArray>& der)
{
    return reply(200, "application/pkcs7-mime; smime-type=certs-only",
                 trial::pkcs7Of(der).toBase64());
}

Reply cut(Reply whole)
{
    whole.cutAfter = whole.bytes.size() / 2;
    return whole;
}

Reply endless()
{
    Reply answer;
    answer.bytes =
        "HTTP/1.1 200 OK\r\nContent-Type: application/pkcs7-mime\r\n\r\n" + QByteArray(1024, 'M');
    answer.isEndless = true;
    return answer;
}

Reply slow()
{
    Reply answer = reply(200, "application/pkcs7-mime", QByteArray(1024, 'M'));
    answer.pause = std::chrono::milliseconds(50);
    return answer;
}

Reply strangersCertificate(const trial::EstServer& server)
{
    return certificates({server.issuer().issue(trial::newKey().get())});
}

const std::vector<EstRow>& estRows()
{
    static const std::vector<EstRow> rows = {
        {"later", [](auto&) { return reply(202, "text/plain", {}, {"Retry-After: 600"}); },
         ExitCode::comeBackLater},
        {"cut", [](auto& server) { return cut(strangersCertificate(server)); },
         ExitCode::authorityUnreachable},
        {"slow", [](auto&) { return slow(); }, ExitCode::authorityUnreachable},
        {"endless", [](auto&) { return endless(); }},
        {"garbage",
         [](auto&) {
             return Reply{"garbage\r\n\r\n", -1, false, {}};
         }},
        {"wrongType", [](auto&) { return reply(200, "text/html", "<p>certificate</p>"); }},
        {"nothing", [](auto&) { return certificates({}); }},
        {"anothersCertificate", [](auto& server) { return strangersCertificate(server); },
         ExitCode::certificateRefused},
        {"redirectElsewhere",
         [](auto&) { return reply(302, {}, {}, {"Location: https://other.example/est"}); }},
        {"refused", [](auto&) { return reply(400, "text/plain", "not this week"); },
         ExitCode::authorityRefused},
        {"login", [](auto&) { return reply(401, {}, {}); }, ExitCode::authorityRefused},
        {"failing", [](auto&) { return reply(503, {}, {}); }, ExitCode::authorityUnreachable},
    };
    return rows;
}

class EstOnACard : public testing::TestWithParam<EstRow> {
protected:
    EstOnACard()
    {
        m_card.write("server.pem", m_server.anchor().pem().toStdString());
        m_card.write("issuer.pem", m_server.root().pem().toStdString());
        m_card.write("authorities.ini",
                     "[town]\nway = est\nurl = " + m_server.address().toStdString() +
                         "\nanchors = server.pem\nissuer-anchors = issuer.pem\n"
                         "time-limit = 3\nprofile." +
                         policy + " = desk\n");
    }

    SoftwareCard m_card;
    trial::EstServer m_server;
};

using Est = EstOnACard;

}  // namespace

TEST_P(Est, answerThatBringsNothing_theKeyWaitsAndTheRenewalIsFinished)
{
    const EstRow& row = GetParam();
    m_server.answerEnrolments([&](const Received&) { return row.answer(m_server); });
    const ProgramEnd end = run(m_card, "renew", "town");
    expectEnd(end, row.code);
    expectWaiting(m_card);
    m_server.answerEnrolments({});
    expectRenewed(m_card, run(m_card, "resume", "town"));
    note("est", row.name, end);
}

INSTANTIATE_TEST_SUITE_P(Answers, Est, testing::ValuesIn(estRows()),
                         [](const auto& test) { return test.param.name; });

using EstServerOnACard = EstOnACard;

TEST_F(EstServerOnACard, serverThatProvesNothing_isNotSentTheRequest)
{
    m_card.write("server.pem", trial::Authority("Stranger").pem().toStdString());
    const ProgramEnd end = run(m_card, "renew", "town");
    expectEnd(end, ExitCode::authorityFailed);
    EXPECT_EQ(m_server.enrolmentCount(), 0);
    expectWaiting(m_card);
    m_card.write("server.pem", m_server.anchor().pem().toStdString());
    expectRenewed(m_card, run(m_card, "resume", "town"));
    note("est", "server of another authority", end);
}

TEST_F(EstServerOnACard, policyWithoutProfile_noKeyIsMade)
{
    m_card.write("authorities.ini", "[town]\nway = est\nurl = " + m_server.address().toStdString() +
                                        "\nanchors = server.pem\nprofile.1.2.3 = desk\n");
    const ProgramEnd end = run(m_card, "renew", "town");
    expectEnd(end, ExitCode::authorityRefused);
    EXPECT_THAT(end.errors, HasSubstr(policy));
    EXPECT_TRUE(m_server.paths().empty());
    EXPECT_EQ(keptRecords(m_card), 0);
    EXPECT_EQ(objectsOn(m_card, "privkey"), 1);
}

namespace {

class CmpOnACard : public trial::Cmp {
public:
    using trial::Cmp::authority;
    using trial::Cmp::restartAuthority;
    using trial::Cmp::server;
    using trial::Cmp::usualIdentity;

protected:
    // Writes the configuration for tarvelo-renew.
    void describe(enrolment::Configuration configuration)
    {
        trial::set(configuration, "time-limit", QStringLiteral("5"));
        std::string text = "[castle]\nway = cmp\nprofile." + std::string(policy) + " = desk\n";
        for (const QString& name : configuration.values.keys()) {
            text += name.toStdString() + " = " + configuration.values[name].toStdString() + "\n";
        }
        m_card.write("authorities.ini", text);
    }

    SoftwareCard m_card;
};

}  // namespace

TEST_F(CmpOnACard, sharedSecretAndSignature_bringTheCertificate)
{
    serve();
    for (const bool bySecret : {true, false}) {
        SCOPED_TRACE(bySecret);
        const SoftwareCard card;
        describe(bySecret ? withSecret() : withSignature());
        card.write("authorities.ini", m_card.contentOf("authorities.ini"));
        expectRenewed(card, run(card, "renew", "castle"));
    }
    EXPECT_EQ(authority->confirmed, 2);
}

TEST_F(CmpOnACard, waiting_isTakenUpByALaterRunWithTheSameRequest)
{
    serve();
    describe(withSecret());
    authority->letsWait = true;
    authority->checkAfterSeconds = 600;
    expectEnd(run(m_card, "renew", "castle"), ExitCode::comeBackLater);
    expectWaiting(m_card);
    authority->letsWait = false;
    expectRenewed(m_card, run(m_card, "resume", "castle"));
    EXPECT_EQ(authority->bodyTypes.count(trial::pkcs10Message), 1);
    EXPECT_EQ(authority->issued, 1);
}

TEST_F(CmpOnACard, hostileAnswers_theKeyWaitsAndTheRenewalIsFinished)
{
    struct Row {
        const char* name;
        std::function<void(CmpOnACard&)> spoil;
        ExitCode code;
    };
    const Row rows[] = {
        {"rejection with reasons",
         [](CmpOnACard& cmp) {
             cmp.authority->rejection = trial::Rejection{2, "not this week"};
         },
         ExitCode::authorityRefused},
        {"certificate for another key",
         [](CmpOnACard& cmp) { cmp.authority->issuesForAnotherKey = true; },
         ExitCode::certificateRefused},
        {"certificate of another holder",
         [](CmpOnACard& cmp) { cmp.authority->issuesForAnotherHolder = true; },
         ExitCode::certificateRefused},
        {"another shared secret",
         [](CmpOnACard& cmp) {
             trial::CmpTestAuthority::Identity stranger = cmp.usualIdentity();
             stranger.secret = "quite another secret";
             cmp.restartAuthority(stranger);
             cmp.authority->takesBadProtection = true;
         },
         ExitCode::authorityFailed},
        {"nobody there", [](CmpOnACard& cmp) { cmp.server.reset(); },
         ExitCode::authorityUnreachable},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const SoftwareCard card;
        serve();
        restartAuthority(usualIdentity());
        describe(withSecret());
        card.write("authorities.ini", m_card.contentOf("authorities.ini"));
        row.spoil(*this);
        const ProgramEnd end = run(card, "renew", "castle");
        expectEnd(end, row.code);
        expectWaiting(card);
        serve();
        restartAuthority(usualIdentity());
        describe(withSecret());
        card.write("authorities.ini", m_card.contentOf("authorities.ini"));
        expectRenewed(card, run(card, "resume", "castle"));
        note("cmp", row.name, end);
    }
}
