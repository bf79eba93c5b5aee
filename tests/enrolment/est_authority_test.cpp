#include "csr_attributes.h"
#include "enrolment_page.h"
#include "est_server.h"
#include "expected_error.h"
#include "hosts/enrolment/authority.h"
#include "hosts/enrolment/certificate_bytes.h"
#include "tests/support/printing.h"

#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

using namespace enrolment;
using testing::ElementsAre;
using testing::HasSubstr;
using trial::EstServer;
using trial::failureOf;
using trial::Received;
using trial::reply;
using trial::Reply;

namespace {

// As the page prints it.
QString causeIn(const char* cause)
{
    return QStringLiteral("`%1`").arg(QString::fromLatin1(cause));
}

class EstAuthority : public testing::Test {
protected:
    QString put(const char* name, const QByteArray& bytes)
    {
        QString path = m_folder.filePath(QString::fromLatin1(name));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        EXPECT_EQ(file.write(bytes), bytes.size());
        file.close();
        EXPECT_EQ(::chmod(QFile::encodeName(path).constData(), 0600), 0);
        return path;
    }

    Configuration configured(const QMap<QString, QString>& more = {})
    {
        Configuration configuration{
            QStringLiteral("comune"),
            QStringLiteral("est"),
            {{QStringLiteral("url"), m_server.address()},
             {QStringLiteral("time-limit"), QStringLiteral("10")},
             {QStringLiteral("anchors"), put("anchors.pem", m_server.anchor().pem())}},
            {}};
        for (auto entry = more.begin(); entry != more.end(); ++entry) {
            configuration.values.insert(entry.key(), entry.value());
        }
        return configuration;
    }

    Answer enrol(const QMap<QString, QString>& more = {})
    {
        return authority(configured(more))->enrol(m_request);
    }

    QTemporaryDir m_folder;
    EstServer m_server;
    trial::Key m_key = trial::newKey();
    Request m_request{trial::requestPem(m_key.get()), {}, QDate(2030, 1, 20), true, {}};
};

}  // namespace

TEST_F(EstAuthority, renewal_bringsACertificateThatWasReallyIssued)
{
    const Answer answer = enrol();
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    const auto& issued = std::get<Issued>(answer);
    EXPECT_EQ(issued.certificate, m_server.lastIssued());
    EXPECT_THAT(issued.chain, ElementsAre(m_server.issuer().der(), m_server.root().der()));
    EXPECT_THAT(m_server.paths(),
                ElementsAre("GET /.well-known/est/cacerts", "GET /.well-known/est/csrattrs",
                            "POST /.well-known/est/simplereenroll"));
}

TEST_F(EstAuthority, firstCertificateAndServersThatWantIt_useSimpleEnrolment)
{
    enrol({{QStringLiteral("renew-by"), QStringLiteral("enroll")}});
    EXPECT_EQ(m_server.paths().back(), "POST /.well-known/est/simpleenroll");
    m_request.isRenewal = false;
    enrol();
    EXPECT_EQ(m_server.paths().back(), "POST /.well-known/est/simpleenroll");
}

TEST_F(EstAuthority, policies_goToTheirLabels)
{
    const QMap<QString, QString> profiles{
        {QStringLiteral("profile"), QStringLiteral("base")},
        {QStringLiteral("profile.1.3.76.16.3"), QStringLiteral("firma libera")}};
    enrol(profiles);
    EXPECT_EQ(m_server.paths().back(), "POST /.well-known/est/base/simplereenroll");
    m_request.policy = QStringLiteral("1.3.76.16.3");
    enrol(profiles);
    EXPECT_EQ(m_server.paths().back(), "POST /.well-known/est/firma%20libera/simplereenroll");

    const std::size_t before = m_server.paths().size();
    m_request.policy = QStringLiteral("1.3.76.16.4");
    const auto failure = failureOf([&] { return enrol(profiles); });
    EXPECT_EQ(failure.cause, "policyUnsupported");
    EXPECT_EQ(m_server.paths().size(), before);
}

TEST_F(EstAuthority, pathOfTheAddress_isTakenAsItIs)
{
    enrol({{QStringLiteral("url"), m_server.address() + QStringLiteral("/pki/est/")}});
    EXPECT_EQ(m_server.paths().back(), "POST /pki/est/simplereenroll");
}

TEST_F(EstAuthority, deferral_isAnswerAndTheSameRequestIsAskedAgain)
{
    m_server.answerEnrolments([](const Received&) {
        return reply(202, "text/plain", "in the queue", {"Retry-After: 3600"});
    });
    const Answer first = enrol();
    ASSERT_TRUE(std::holds_alternative<Deferred>(first));
    const auto& deferred = std::get<Deferred>(first);
    EXPECT_EQ(deferred.retryAfter, std::chrono::seconds(3600));
    EXPECT_THAT(deferred.reason.toStdString(), HasSubstr("in the queue"));

    m_server.answerEnrolments({});
    m_request.state = deferred.state;
    EXPECT_TRUE(std::holds_alternative<Issued>(enrol()));
}

TEST_F(EstAuthority, demands_areHeldToTheRequestBeforeItIsSent)
{
    m_server.demand(trial::csrAttributes("a=OID:id-ecPublicKey\nb=OID:ecdsa-with-SHA256"));
    EXPECT_NO_THROW(enrol());
    const std::size_t before = m_server.paths().size();
    m_server.demand(trial::csrAttributes("a=OID:rsaEncryption"));
    const auto failure = failureOf([&] { return enrol(); });
    EXPECT_EQ(failure.cause, "unmetDemand");
    EXPECT_THAT(failure.text, HasSubstr("a key of the type rsaEncryption"));
    EXPECT_EQ(m_server.paths().size(), before + 2);
}

TEST_F(EstAuthority, issuerAnchors_countInsteadOfTheServersOwn)
{
    EXPECT_NO_THROW(
        enrol({{QStringLiteral("issuer-anchors"), put("root.pem", m_server.root().pem())}}));
    const trial::Authority other("Another");
    const auto failure = failureOf([&] {
        return enrol({{QStringLiteral("issuer-anchors"), put("other.pem", other.pem())}});
    });
    EXPECT_EQ(failure.cause, "wrongCertificate");
    EXPECT_THAT(failure.text, HasSubstr("not from a trusted authority"));
}

TEST_F(EstAuthority, probe_asksForTheAuthoritysCertificatesAlone)
{
    EXPECT_NO_THROW(authority(configured())->probe());
    EXPECT_THAT(m_server.paths(), ElementsAre("GET /.well-known/est/cacerts"));
}

TEST_F(EstAuthority, mistakesOfTheConfiguration_reachNoServer)
{
    struct Row {
        const char* key;
        QString value;
        const char* text;
    };
    const Row rows[] = {
        {"url", QStringLiteral("http://127.0.0.1/"), "needs an https:// address"},
        {"url", QString(), "\"url\" is missing"},
        {"anchor", QStringLiteral("x"), "does not know \"anchor\""},
        {"profile", QStringLiteral("a/b"), "cannot be a profile"},
        {"profile.1.2.3", QStringLiteral("cacerts"), "cannot be a profile"},
        {"profile", QStringLiteral(".."), "cannot be a profile"},
        {"renew-by", QStringLiteral("magic"), "can be reenroll or enroll"},
    };
    for (const Row& row : rows) {
        const auto failure = failureOf([&] {
            return enrol({{QString::fromLatin1(row.key), row.value}});
        });
        EXPECT_EQ(failure.cause, "misconfigured") << row.key;
        EXPECT_THAT(failure.text, HasSubstr(row.text));
    }
    EXPECT_TRUE(m_server.paths().empty());
}

// The page's list of what was tried is held to these rows, and the whole errors are written to a
// file for people.
TEST_F(EstAuthority, hostileAnswers_endInAClearErrorAndTheNextRunSucceeds)
{
    const trial::Key otherKey = trial::newKey();
    const trial::Authority stranger("Another");
    const auto pkcs7 = [](const QByteArray& der) {
        return reply(200, "application/pkcs7-mime; smime-type=certs-only", der.toBase64());
    };
    const auto issuing = [&](const std::function<void(trial::Wish&)>& change) {
        trial::Wish wish;
        change(wish);
        return pkcs7(trial::pkcs7Of({m_server.issuer().issue(m_key.get(), wish)}));
    };
    const QByteArray good = trial::pkcs7Of({m_server.issuer().issueFor(m_request.pkcs10)});
    Reply endless = reply(200, "application/pkcs7-mime", {});
    endless.bytes =
        "HTTP/1.1 200 OK\r\nContent-Type: application/pkcs7-mime\r\n\r\n" + QByteArray(1024, 'M');
    endless.isEndless = true;
    Reply slow = pkcs7(good);
    slow.pause = std::chrono::milliseconds(10);
    Reply cut = pkcs7(good);
    cut.cutAfter = cut.bytes.size() / 2;

    struct Row {
        const char* what;
        Reply answer;
        const char* cause;
        const char* text;
    };
    const Row rows[] = {
        {"connection cut within the answer", cut, "unreachable", "broke before the answer"},
        {"slow", slow, "unreachable", "did not answer in time"},
        {"endless", endless, "badAnswer", "larger than 1 MiB"},
        {"garbage instead of HTTP",
         {"garbage\r\n\r\n", -1, false, {}},
         "badAnswer",
         "does not answer like"},
        {"wrong type", reply(200, "text/html", good.toBase64()), "badAnswer",
         "with the type \"text/html\""},
        {"no type", reply(200, {}, good.toBase64()), "badAnswer", "with the type \"\""},
        {"binary instead of base64", reply(200, "application/pkcs7-mime", good), "badAnswer",
         "is not base64"},
        {"garbage in base64", pkcs7("garbage"), "badAnswer", "no certificate that can be read"},
        {"half a PKCS#7", pkcs7(good.left(good.size() / 2)), "badAnswer", "no certificate"},
        {"more than a PKCS#7", pkcs7(good + "x"), "badAnswer", "no certificate"},
        {"no certificate in it", pkcs7(trial::pkcs7Of({})), "badAnswer", "no certificate"},
        {"nothing", pkcs7({}), "badAnswer", "no certificate"},
        {"redirect to another host", reply(302, {}, {}, {"Location: https://other.example/est"}),
         "badAnswer", "redirects elsewhere (https://other.example/est)"},
        {"another's certificate", pkcs7(trial::pkcs7Of({m_server.issuer().issue(otherKey.get())})),
         "wrongCertificate", "another key"},
        {"certificate of another holder",
         issuing([](trial::Wish& w) { w.subject[1].second = "TINIT-VRDBRN70A01H501Y"; }),
         "wrongCertificate", "another holder"},
        {"expired certificate", issuing([](trial::Wish& w) {
             w.beginsInSeconds = -7200;
             w.endsInSeconds = -3600;
         }),
         "wrongCertificate", "expired on"},
        {"certificate of the future", issuing([](trial::Wish& w) { w.beginsInSeconds = 100000; }),
         "wrongCertificate", "valid from"},
        {"certificate of another authority",
         pkcs7(trial::pkcs7Of({stranger.issueFor(m_request.pkcs10), stranger.der()})),
         "wrongCertificate", "not from a trusted authority"},
        {"refusal with a reason", reply(400, "text/plain", "holder\x1b[2J unknown"), "refused",
         "It says: holder?[2J unknown"},
        {"refused login", reply(401, {}, {}), "refused", "HTTP status 401"},
        {"no such label", reply(404, {}, {}), "misconfigured", "HTTP status 404"},
        {"failing server", reply(503, {}, {}), "unreachable", "HTTP status 503"},
        {"success without content", reply(204, {}, {}), "badAnswer", "HTTP status 204"},
    };
    std::ofstream table(HOSTILE_ANSWERS_FILE, std::ios::trunc);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        m_server.answerEnrolments([&](const Received&) { return row.answer; });
        const auto failure = failureOf([&] {
            return enrol({{QStringLiteral("time-limit"), QStringLiteral("1")}});
        });
        EXPECT_EQ(failure.cause, row.cause);
        EXPECT_THAT(failure.text, HasSubstr(row.text));
        m_server.answerEnrolments({});
        const bool isRenewedAfterwards = std::holds_alternative<Issued>(enrol());
        EXPECT_TRUE(isRenewedAfterwards);
        trial::expectRow(QString::fromUtf8(row.what), causeIn(row.cause));
        table << row.what << " | " << failure.cause << " | " << failure.text
              << " | issued afterwards: " << (isRenewedAfterwards ? "yes" : "no") << '\n';
    }
    table.close();
    EXPECT_TRUE(table.good());
}

TEST_F(EstAuthority, enrolmentCutAtEveryByte_isAskedForOnceAndFailsClearly)
{
    Reply cut = reply(200, "application/pkcs7-mime",
                      trial::pkcs7Of({m_server.issuer().issueFor(m_request.pkcs10)}).toBase64());
    const int size = cut.bytes.size();
    for (int bytes = 0; bytes < size; ++bytes) {
        cut.cutAfter = bytes;
        m_server.answerEnrolments([&](const Received&) { return cut; });
        const std::size_t before = m_server.paths().size();
        const auto failure = failureOf([&] { return enrol(); });
        EXPECT_THAT(failure.cause, testing::AnyOf("unreachable", "badAnswer")) << bytes;
        EXPECT_EQ(m_server.paths().size(), before + 3) << bytes;
    }
}

TEST_F(EstAuthority, hostileCertificatesOfTheAuthority_endBeforeTheRequestIsSent)
{
    struct Row {
        const char* what;
        Reply answer;
        const char* cause;
    };
    const QByteArray list = trial::pkcs7Of({m_server.issuer().der()});
    const Row rows[] = {
        {"wrong type", reply(200, "text/html", list.toBase64()), "badAnswer"},
        {"garbage", reply(200, "application/pkcs7-mime", "Z2FyYmFnZQ=="), "badAnswer"},
        {"broken base64", reply(200, "application/pkcs7-mime", "Z2F=yYmFnZQ"), "badAnswer"},
        {"none", reply(200, "application/pkcs7-mime", trial::pkcs7Of({}).toBase64()), "badAnswer"},
        {"later", reply(202, {}, {}), "badAnswer"},
        {"not there", reply(404, {}, {}), "misconfigured"},
        {"redirect", reply(301, {}, {}, {"Location: /elsewhere"}), "badAnswer"},
    };
    for (const Row& row : rows) {
        trial::expectRow(QString::fromUtf8(row.what), causeIn(row.cause));
        m_server.answerAuthorities([&](const Received&) { return row.answer; });
        EXPECT_EQ(failureOf([&] { return enrol(); }).cause, row.cause) << row.what;
        EXPECT_EQ(failureOf([&] {
                      authority(configured())->probe();
                      return 0;
                  }).cause,
                  row.cause);
    }
    EXPECT_EQ(m_server.enrolmentCount(), 0);
}

TEST_F(EstAuthority, unreadableDemands_endBeforeTheRequestIsSent)
{
    m_server.demand("garbage");
    EXPECT_EQ(failureOf([&] { return enrol(); }).cause, "badAnswer");
    EXPECT_EQ(m_server.enrolmentCount(), 0);
}

TEST_F(EstAuthority, serverOfAnotherAuthority_getsNothing)
{
    const trial::Authority other("Another");
    const auto failure = failureOf([&] {
        return enrol({{QStringLiteral("anchors"), put("wrong.pem", other.pem())}});
    });
    EXPECT_EQ(failure.cause, "untrusted");
    EXPECT_TRUE(m_server.paths().empty());
}

// Without a length the end of the connection is the end of the answer.
TEST_F(EstAuthority, contentCutAtEveryByte_isNeverTakenForAnAnswer)
{
    const QByteArray der = trial::pkcs7Of({m_server.issuer().issueFor(m_request.pkcs10)});
    for (int bytes = 0; bytes < der.size(); ++bytes) {
        EXPECT_TRUE(certificatesInPkcs7(der.left(bytes)).empty()) << bytes;
    }
    Reply open;
    open.bytes = "HTTP/1.1 200 OK\r\nContent-Type: application/pkcs7-mime\r\n\r\n" + der.toBase64();
    for (const int missing : {1, 2, 3, 4, 100}) {
        open.cutAfter = open.bytes.size() - missing;
        m_server.answerEnrolments([&](const Received&) { return open; });
        EXPECT_THAT(failureOf([&] { return enrol(); }).cause,
                    testing::AnyOf("unreachable", "badAnswer"))
            << missing;
    }
}
