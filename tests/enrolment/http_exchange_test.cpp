#include "exchanges.h"
#include "expected_error.h"
#include "hosts/enrolment/http_exchange.h"
#include "tests/support/printing.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QLocale>

#include <gmock/gmock.h>

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
using trial::Reply;

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
