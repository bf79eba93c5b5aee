#include "enrolment_page.h"
#include "exchanges.h"
#include "expected_error.h"
#include "hosts/enrolment/http_exchange.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <functional>

using namespace enrolment;
using std::chrono::milliseconds;
using testing::HasSubstr;
using trial::always;
using trial::failureOf;
using trial::getFrom;
using trial::LoopbackServer;
using trial::postTo;
using trial::quick;
using trial::Received;
using trial::reply;

namespace {

class Https : public testing::Test {
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

    trial::Tls tls(const std::function<void(trial::Wish&)>& change = {})
    {
        trial::Wish wish;
        wish.subject = {{"CN", "127.0.0.1"}};
        wish.extensions = {"subjectAltName=IP:127.0.0.1"};
        if (change) {
            change(wish);
        }
        return {m_authority.issue(m_serverKey.get(), wish), m_serverKey.get(), {}};
    }

    HttpSettings trusting(const trial::Authority& authority)
    {
        HttpSettings settings = quick();
        settings.anchorsFile = put("anchors.pem", authority.pem());
        return settings;
    }

    QTemporaryDir m_folder;
    trial::Authority m_authority{"Castelvane Servers"};
    trial::Authority m_stranger{"Another"};
    trial::Key m_serverKey = trial::newKey();
};

}  // namespace

TEST_F(Https, proxyLogin_isShownToTheProxyThatAsks)
{
    const LoopbackServer proxy([](const Received& received) {
        const QByteArray login = received.headers.value("proxy-authorization");
        return login.isEmpty() ? reply(407, {}, {}, {"Proxy-Authenticate: Basic realm=\"p\""})
                               : reply(200, {}, login);
    });
    Configuration configuration;
    configuration.values = {
        {QStringLiteral("proxy"), proxy.address()},
        {QStringLiteral("proxy-user"), QStringLiteral("ada")},
        {QStringLiteral("proxy-password-file"), put("password", "tuesday-7\n")}};
    Configuration toldByTheHost;
    toldByTheHost.hostProxy =
        hostProxy(QStringLiteral("127.0.0.1"), proxy.address().section(QLatin1Char(':'), 2),
                  QStringLiteral("ada"), QStringLiteral("tuesday-7"));
    const HttpRequest request{
        HttpRequest::Method::get, QUrl(QStringLiteral("http://castelvane.invalid/a")), {}, {}};
    for (const Configuration& each : {configuration, toldByTheHost}) {
        EXPECT_EQ(exchange(request, httpSettingsOf(each)).body,
                  "Basic " + QByteArray("ada:tuesday-7").toBase64());
    }
}

TEST_F(Https, serverOfTheConfiguredAuthority_isTrusted)
{
    const LoopbackServer server(always(reply(200, {}, "answer")), tls());
    EXPECT_EQ(exchange(getFrom(server), trusting(m_authority)).body, QByteArray("answer"));
}

TEST_F(Https, serversThatAreNotWhoTheyShouldBe_getNoRequest)
{
    const auto expired = [](trial::Wish& wish) {
        wish.beginsInSeconds = -7200;
        wish.endsInSeconds = -3600;
    };
    const auto early = [](trial::Wish& wish) { wish.beginsInSeconds = 3600; };
    const auto otherName = [](trial::Wish& wish) {
        wish.extensions = {"subjectAltName=IP:127.0.0.2,DNS:localhost"};
    };
    struct Row {
        const char* what;
        trial::Tls tls;
        HttpSettings settings;
        const char* text;
    };
    HttpSettings system = quick();
    HttpSettings strangers = quick();
    strangers.anchorsFile = put("stranger.pem", m_stranger.pem());
    const Row rows[] = {
        {"certificate of an authority that is not the configured one", tls(), strangers,
         "unable to get local issuer certificate"},
        {"certificate that the system does not trust", tls(), system,
         "unable to get local issuer certificate"},
        {"expired certificate of the server", tls(expired), trusting(m_authority),
         "certificate has expired"},
        {"certificate of the server that begins later", tls(early), trusting(m_authority),
         "certificate is not yet valid"},
        {"certificate for another server", tls(otherName), trusting(m_authority),
         "no alternative certificate subject name"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        trial::expectRow(QString::fromUtf8(row.what), QStringLiteral("`untrusted`"));
        const LoopbackServer server(always(reply(200, {}, "answer")), row.tls);
        const auto failure = failureOf([&] { return exchange(postTo(server), row.settings); });
        EXPECT_EQ(failure.cause, "untrusted");
        EXPECT_THAT(failure.text, HasSubstr(row.text));
        EXPECT_EQ(server.requestCount(), 0);
        EXPECT_EQ(server.connectionCount(), 1);
    }
}

TEST_F(Https, plainServerOnTheOtherSide_isUnreachable)
{
    const LoopbackServer server(always(reply(200, {}, "answer")));
    HttpRequest request = getFrom(server);
    request.url.setScheme(QStringLiteral("https"));
    const auto failure = failureOf([&] {
        HttpSettings settings = quick();
        settings.totalTime = milliseconds(500);
        return exchange(request, settings);
    });
    EXPECT_EQ(failure.cause, "unreachable");
    EXPECT_EQ(server.requestCount(), 0);
}

TEST_F(Https, basicLogin_isShown)
{
    const LoopbackServer server(
        [](const Received& received) {
            return reply(200, {}, received.headers.value("authorization"));
        },
        tls());
    HttpSettings settings = trusting(m_authority);
    settings.user = QStringLiteral("ada");
    settings.passwordFile = put("password", "tuesday-7\n");
    EXPECT_EQ(exchange(postTo(server), settings).body,
              "Basic " + QByteArray("ada:tuesday-7").toBase64());
}

TEST_F(Https, digestLogin_answersTheChallengeWithoutThePassword)
{
    const auto md5 = [](const QByteArray& text) {
        return QCryptographicHash::hash(text, QCryptographicHash::Md5).toHex();
    };
    QByteArray login;
    QByteArray body;
    const LoopbackServer server(
        [&](const Received& received) {
            login = received.headers.value("authorization");
            body = received.body;
            if (!login.contains("response=")) {
                return reply(401, {}, {}, {R"(WWW-Authenticate: Digest realm="est", nonce="n1")"});
            }
            const QByteArray right = md5(md5("ada:est:tuesday-7") + ":n1:" + md5("POST:/a"));
            return reply(login.contains("response=\"" + right + '"') ? 200 : 401, {}, {});
        },
        tls());
    HttpSettings settings = trusting(m_authority);
    settings.user = QStringLiteral("ada");
    settings.passwordFile = put("password", "tuesday-7");
    settings.login = HttpLogin::digest;
    EXPECT_EQ(exchange(postTo(server), settings).status, 200);
    EXPECT_EQ(body, QByteArray("body"));
    EXPECT_FALSE(login.contains("tuesday"));
    settings.passwordFile = put("password", "wednesday");
    EXPECT_EQ(exchange(postTo(server), settings).status, 401);
}

TEST_F(Https, clientCertificate_isShownToTheServerThatDemandsIt)
{
    const trial::Key key = trial::newKey();
    const QByteArray own = m_authority.issue(key.get());
    trial::Tls demanding = tls();
    demanding.clientAnchors = m_authority.pem();
    QByteArray shown;
    const LoopbackServer server(
        [&](const Received& received) {
            shown = received.clientCertificate;
            return reply(200, {}, "answer");
        },
        demanding);
    HttpSettings settings = trusting(m_authority);
    const auto without = failureOf([&] { return exchange(postTo(server), settings); });
    EXPECT_EQ(without.cause, "refused");
    EXPECT_THAT(without.cure, HasSubstr("client-certificate"));
    EXPECT_EQ(server.requestCount(), 0);

    settings.clientCertificateFile = put("own.pem", trial::pemOf(own));
    settings.clientKeyFile = put("own.key", trial::keyPem(key.get()));
    EXPECT_EQ(exchange(postTo(server), settings).status, 200);
    EXPECT_EQ(shown, own);

    settings.clientKeyFile = put("own.key", trial::keyPem(key.get(), "tuesday-7"));
    settings.clientKeyPasswordFile = put("password", "tuesday-7\n");
    EXPECT_EQ(exchange(postTo(server), settings).status, 200);
}

TEST_F(Https, loginsThatCannotBeUsed_reachNoServer)
{
    const trial::Key key = trial::newKey();
    const LoopbackServer server(always(reply(200, {}, "answer")), tls());
    const LoopbackServer plain(always(reply(200, {}, "answer")));
    HttpSettings byName = trusting(m_authority);
    byName.user = QStringLiteral("ada");
    byName.passwordFile = put("password", "tuesday-7");
    HttpSettings byCertificate = trusting(m_authority);
    byCertificate.clientCertificateFile =
        put("own.pem", trial::pemOf(m_authority.issue(key.get())));
    byCertificate.clientKeyFile = put("own.key", trial::keyPem(key.get(), "tuesday-7"));
    HttpSettings wrongPassword = byCertificate;
    wrongPassword.clientKeyPasswordFile = put("wrong", "wednesday");
    HttpSettings otherKey = byCertificate;
    otherKey.clientKeyFile = put("other.key", trial::keyPem(trial::newKey().get()));
    HttpSettings noAnchors = quick();
    noAnchors.anchorsFile = put("none.pem", "nothing");
    HttpSettings openKey = byCertificate;
    openKey.clientKeyFile = put("open.key", trial::keyPem(key.get()));
    ASSERT_EQ(::chmod(QFile::encodeName(openKey.clientKeyFile).constData(), 0644), 0);

    struct Row {
        const char* what;
        HttpRequest request;
        HttpSettings settings;
        const char* text;
    };
    const Row rows[] = {
        {"password over http", postTo(plain), byName, "needs an https:// address"},
        {"certificate over http", postTo(plain), byCertificate, "needs an https:// address"},
        {"encrypted key without password", postTo(server), byCertificate, "cannot be used"},
        {"wrong password of the key", postTo(server), wrongPassword, "cannot be used"},
        {"key of another certificate", postTo(server), otherKey, "cannot be used"},
        {"anchors without a certificate", postTo(server), noAnchors, "trust anchors"},
        {"key that others can read", postTo(server), openKey, "other users have access"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const auto failure = failureOf([&] { return exchange(row.request, row.settings); });
        EXPECT_EQ(failure.cause, "misconfigured");
        EXPECT_THAT(failure.text, HasSubstr(row.text));
        EXPECT_THAT(failure.text, testing::Not(HasSubstr("tuesday")));
    }
    EXPECT_EQ(server.requestCount() + plain.connectionCount(), 0);
}
