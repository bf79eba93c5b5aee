#include "enrolment_page.h"
#include "expected_error.h"
#include "hosts/enrolment/http_exchange.h"
#include "loopback_server.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace enrolment;
using testing::HasSubstr;
using trial::failureOf;
using trial::LoopbackServer;
using trial::Received;
using trial::reply;
using trial::Reply;

namespace {

using std::chrono::milliseconds;

HttpRequest getFrom(const LoopbackServer& server)
{
    return {HttpRequest::Method::get, QUrl(server.address() + QStringLiteral("/a")), {}, {}};
}

HttpRequest postTo(const LoopbackServer& server)
{
    return {HttpRequest::Method::post, QUrl(server.address() + QStringLiteral("/a")), "body",
            "application/pkcs10"};
}

HttpSettings quick()
{
    HttpSettings settings;
    settings.connectTime = std::chrono::seconds(5);
    settings.totalTime = std::chrono::seconds(10);
    settings.pauseBeforeRepeat = milliseconds(0);
    return settings;
}

LoopbackServer::Handler always(const Reply& answer)
{
    return [answer](const Received&) { return answer; };
}

class Https : public testing::Test {
protected:
    QString put(const char* name, const QByteArray& bytes)
    {
        const QString path = m_folder.filePath(QString::fromLatin1(name));
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

TEST(HttpExchange, getAndPost_arriveAsTheyAre)
{
    Received received;
    const LoopbackServer server([&](const Received& request) {
        received = request;
        return reply(200, "Application/PKCS7-Mime; smime-type=certs-only", "answer");
    });
    HttpAnswer answer = exchange(getFrom(server), quick());
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.contentType, QByteArray("application/pkcs7-mime"));
    EXPECT_EQ(answer.body, QByteArray("answer"));
    EXPECT_FALSE(answer.retryAfter);
    EXPECT_EQ(received.method, QByteArray("GET"));
    EXPECT_EQ(received.path, QByteArray("/a"));

    exchange(postTo(server), quick());
    EXPECT_EQ(received.method, QByteArray("POST"));
    EXPECT_EQ(received.headers.value("content-type"), QByteArray("application/pkcs10"));
    EXPECT_EQ(received.body, QByteArray("body"));
    EXPECT_FALSE(received.headers.contains("expect"));
    EXPECT_EQ(server.requestCount(), 2);
}

TEST(HttpExchange, otherStatuses_areTheCallersBusiness)
{
    for (const int status : {202, 204, 400, 401, 404, 500, 503}) {
        const LoopbackServer server(always(reply(status, "text/plain", "why")));
        EXPECT_EQ(exchange(getFrom(server), quick()).status, status);
        EXPECT_EQ(server.requestCount(), 1);
    }
}

TEST(HttpExchange, retryAfter_isSecondsOrDateAndBounded)
{
    using std::chrono::seconds;
    const QByteArray inAnHour = QLocale::c()
                                    .toString(QDateTime::currentDateTimeUtc().addSecs(3600),
                                              QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"))
                                    .toLatin1();
    struct Row {
        QByteArray value;
        seconds least;
        seconds most;
    };
    const Row rows[] = {
        {"120", seconds(120), seconds(120)},
        {inAnHour, seconds(3590), seconds(3600)},
        {"99999999999", seconds(30L * 24 * 3600), seconds(30L * 24 * 3600)},
        {"0", seconds(0), seconds(0)},
        {"-5", seconds(0), seconds(0)},
        {"soon", seconds(0), seconds(0)},
        {"Sat, 01 Jan 2000 00:00:00 GMT", seconds(0), seconds(0)},
    };
    for (const Row& row : rows) {
        const LoopbackServer server(always(reply(202, {}, {}, {"Retry-After: " + row.value})));
        const auto wait = exchange(getFrom(server), quick()).retryAfter;
        EXPECT_EQ(wait.has_value(), row.least.count() > 0) << row.value.constData();
        EXPECT_GE(wait.value_or(seconds(0)), row.least) << row.value.constData();
        EXPECT_LE(wait.value_or(seconds(0)), row.most) << row.value.constData();
    }
}

TEST(HttpExchange, redirect_isNotFollowed)
{
    const LoopbackServer other(always(reply(200, {}, "stolen")));
    for (const int status : {301, 302, 303, 307, 308}) {
        const LoopbackServer server(
            always(reply(status, {}, {}, {"Location: " + other.address().toLatin1() + "/b"})));
        const auto failure = failureOf([&] { return exchange(postTo(server), quick()); });
        EXPECT_EQ(failure.cause, "badAnswer");
        EXPECT_THAT(failure.text, HasSubstr(other.address().toStdString()));
        EXPECT_EQ(server.requestCount(), 1);
    }
    EXPECT_EQ(other.connectionCount(), 0);
}

TEST(HttpExchange, answersThatAreNone_endInAClearError)
{
    const Reply large = reply(200, {}, QByteArray(1048577, 'x'));
    const Reply endlessBody{"HTTP/1.1 200 OK\r\n\r\n" + QByteArray(1024, 'x'), -1, true, {}};
    // Sixteen bytes each, so that the repeated part begins with a line.
    const Reply endlessHeaders{
        "HTTP/1.1 200 OK\r\n" + QByteArray("x-header: abcd\r\n").repeated(64), -1, true, {}};
    struct Row {
        const char* what;
        Reply answer;
        const char* cause;
        const char* text;
    };
    const Row rows[] = {
        {"too large", large, "badAnswer", "larger than 1 MiB"},
        {"endless body", endlessBody, "badAnswer", "larger than 1 MiB"},
        {"endless headers", endlessHeaders, "badAnswer", "larger than 1 MiB"},
        {"garbage", {"garbage\r\n\r\n", -1, false, {}}, "badAnswer", "does not answer like"},
        {"other protocol", {"SSH-2.0-x\r\n", -1, false, {}}, "badAnswer", "does not answer like"},
        {"status that is none", {"HTTP/1.1 abc\r\n\r\n", -1, false, {}}, "badAnswer", ""},
        {"only informational",
         {"HTTP/1.1 100 Continue\r\n\r\n", -1, false, {}},
         "unreachable",
         "broke before the answer was complete"},
        {"other protocol wanted",
         {"HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n", -1, false, {}},
         "unreachable",
         "broke before the answer was complete"},
        {"nothing", {"", -1, false, {}}, "unreachable", "broke before the answer was complete"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const LoopbackServer server(always(row.answer));
        const auto failure = failureOf([&] { return exchange(postTo(server), quick()); });
        EXPECT_EQ(failure.cause, row.cause);
        EXPECT_THAT(failure.text, HasSubstr(row.text));
        EXPECT_EQ(server.requestCount(), 1);
    }
}

TEST(HttpExchange, slowServer_endsAtTheTimeLimit)
{
    Reply slow = reply(200, {}, QByteArray(1000, 'x'));
    slow.pause = milliseconds(20);
    const LoopbackServer server(always(slow));
    HttpSettings settings = quick();
    settings.totalTime = milliseconds(500);
    QElapsedTimer timer;
    timer.start();
    const auto failure = failureOf([&] { return exchange(getFrom(server), settings); });
    EXPECT_LT(timer.elapsed(), 5000);
    EXPECT_EQ(failure.cause, "unreachable");
    EXPECT_THAT(failure.text, HasSubstr("did not answer in time"));
    EXPECT_EQ(server.requestCount(), 1);
}

TEST(HttpExchange, answerCutAtEveryByte_isUnreachableAndOnlyAGetIsRepeated)
{
    Reply cut = reply(200, "text/plain", "answer");
    for (int bytes = 0; bytes < cut.bytes.size(); ++bytes) {
        cut.cutAfter = bytes;
        const LoopbackServer server(always(cut));
        const auto posting = failureOf([&] { return exchange(postTo(server), quick()); });
        EXPECT_THAT(posting.cause, testing::AnyOf("unreachable", "badAnswer")) << bytes;
        EXPECT_EQ(server.requestCount(), 1) << bytes;
        const auto getting = failureOf([&] { return exchange(getFrom(server), quick()); });
        EXPECT_EQ(getting.cause, posting.cause) << bytes;
        EXPECT_EQ(server.requestCount(), posting.cause == "unreachable" ? 3 : 2) << bytes;
    }
}

TEST(HttpExchange, getThatWorksTheSecondTime_isAnswered)
{
    int requests = 0;
    const LoopbackServer server([&](const Received&) {
        Reply answer = reply(200, {}, "second");
        answer.cutAfter = ++requests == 1 ? 20 : -1;
        return answer;
    });
    EXPECT_EQ(exchange(getFrom(server), quick()).body, QByteArray("second"));
}

TEST(HttpExchange, nobodyThere_isUnreachable)
{
    QString address;
    {
        const LoopbackServer gone(always(reply(200, {}, {})));
        address = gone.address();
    }
    for (const QString& url : {address, QStringLiteral("https://castelvane.invalid")}) {
        const auto failure = failureOf([&] {
            return exchange({HttpRequest::Method::get, QUrl(url), {}, {}}, quick());
        });
        EXPECT_EQ(failure.cause, "unreachable");
        EXPECT_THAT(failure.text, HasSubstr("cannot be reached"));
    }
}

TEST(HttpExchange, proxies_areThoseOfSettingsThenEnvironment)
{
    const HttpRequest request{
        HttpRequest::Method::get, QUrl(QStringLiteral("http://castelvane.invalid/a")), {}, {}};
    const auto answering = [](const char* who) {
        return [who](const Received& received) { return reply(200, {}, who + received.path); };
    };
    const LoopbackServer environment(answering("environment "));
    const LoopbackServer configured(answering("configured "));
    ASSERT_TRUE(qputenv("http_proxy", environment.address().toLatin1()));
    HttpSettings settings = quick();
    EXPECT_EQ(exchange(request, settings).body,
              QByteArray("environment http://castelvane.invalid/a"));
    settings.proxy.address = configured.address();
    EXPECT_EQ(exchange(request, settings).body,
              QByteArray("configured http://castelvane.invalid/a"));
    ASSERT_TRUE(qunsetenv("http_proxy"));
}

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
                return reply(401, {}, {}, {"WWW-Authenticate: Digest realm=\"est\", nonce=\"n1\""});
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
