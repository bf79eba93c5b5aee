// Authorities, web servers and strangers that do not keep to the rules: each ends in an error that
// says so, and the same request brings a certificate from a good authority afterwards.

#include "cmp_fixture.h"
#include "enrolment_page.h"
#include "expected_error.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace trial {

using enrolment::Configuration;
using enrolment::Deferred;
using ::testing::HasSubstr;

namespace {

QByteArray quoted(const char* cause)
{
    return '`' + QByteArray(cause) + '`';
}

constexpr const char* cmpType = "application/pkixcmp";

class CmpHostile : public Cmp {
protected:
    // By the authority as it should be, for the same request; and the page says so.
    void expectIssuedAfterwards(Configuration configuration, const char* title, const char* outcome)
    {
        expectRow(QString::fromLatin1(title),
                  QString::fromLatin1(outcome) + QStringLiteral(" | yes"));
        restartAuthority(usualIdentity());
        server.reset();
        serve();
        set(configuration, "url", server->address() + QStringLiteral("/cmp"));
        EXPECT_TRUE(isIssued(enrol(configuration)));
    }
};

struct BadReply {
    const char* name;
    // In docs/enrolment.md.
    const char* title;
    // What comes instead of the authority's good answer.
    std::function<Reply(const QByteArray& good, const Received& received)> reply;
    const char* cause;
    // A part of the error's text.
    const char* text;
};

void PrintTo(const BadReply& bad, std::ostream* to)
{
    *to << bad.name;
}

auto page(int status)
{
    return [status](const QByteArray&, const Received&) {
        return reply(status, "text/html", "<p>no</p>");
    };
}

const BadReply badReplies[] = {
    {"slow", "slow",
     [](const QByteArray& good, const Received&) {
         auto slow = reply(200, cmpType, good);
         slow.pause = std::chrono::milliseconds(50);
         return slow;
     },
     "unreachable", "did not answer in time"},
    {"endless", "endless",
     [](const QByteArray&, const Received&) {
         Reply endless;
         endless.bytes = "HTTP/1.1 200 Answer\r\nContent-Type: application/pkixcmp\r\n\r\n";
         endless.bytes += QByteArray(2048, 'x');
         endless.isEndless = true;
         return endless;
     },
     "badAnswer", "larger than 1 MiB"},
    {"wrongType", "wrong type",
     [](const QByteArray& good, const Received&) { return reply(200, "text/html", good); },
     "badAnswer", "not of the CMP type"},
    {"noType", "no type",
     [](const QByteArray& good, const Received&) { return reply(200, {}, good); }, "badAnswer",
     "not of the CMP type"},
    {"garbage", "garbage",
     [](const QByteArray&, const Received&) { return reply(200, cmpType, QByteArray(1000, 'x')); },
     "badAnswer", "not a readable CMP message"},
    {"nothing", "nothing",
     [](const QByteArray&, const Received&) { return reply(200, cmpType, {}); }, "badAnswer",
     "not a readable CMP message"},
    {"halfAMessage", "half a message",
     [](const QByteArray& good, const Received&) {
         return reply(200, cmpType, good.left(good.size() / 2));
     },
     "badAnswer", "not a readable CMP message"},
    {"byteBehind", "more than a message",
     [](const QByteArray& good, const Received&) { return reply(200, cmpType, good + '\0'); },
     "badAnswer", "not a readable CMP message"},
    {"nameChanged", "name changed on the way",
     [](const QByteArray& good, const Received&) {
         auto changed = good;
         changed.replace("Ada Castelvane", "Ida Castelvane");
         return reply(200, cmpType, changed);
     },
     "untrusted", "not protected with the shared secret"},
    {"reflection", "the host's own message",
     [](const QByteArray&, const Received& received) { return reply(200, cmpType, received.body); },
     "badAnswer", "another exchange of messages"},
    {"redirect", "redirect to another host",
     [](const QByteArray&, const Received&) {
         return reply(302, {}, {}, {"Location: http://127.0.0.1:1/elsewhere"});
     },
     "badAnswer", "redirects elsewhere"},
    {"notFound", "HTTP status 404", page(404), "misconfigured", "no CMP service at this address"},
    {"forbidden", "HTTP status 403", page(403), "refused", "refuses the access (HTTP 403)"},
    {"serverError", "HTTP status 500", page(500), "unreachable", "gives an error (HTTP 500)"},
    {"teapot", "HTTP status 418", page(418), "badAnswer", "gives an error (HTTP 418)"},
};

class CmpBadReply : public CmpHostile, public ::testing::WithParamInterface<BadReply> {};

}  // namespace

TEST_P(CmpBadReply, endsInItsError_andIssuedAfterwards)
{
    const auto& bad = GetParam();
    serve([&](const Received& received, int /*number*/) {
        return bad.reply(authority->answerTo(received.body), received);
    });
    auto configuration = withSecret();
    set(configuration, "time-limit", QStringLiteral("2"));
    const auto failure = failureOf([&] { return enrol(configuration); });
    EXPECT_EQ(failure.cause, bad.cause);
    EXPECT_THAT(failure.text, HasSubstr(bad.text));
    EXPECT_EQ(server->requestCount(), 1);
    expectIssuedAfterwards(configuration, bad.title, quoted(bad.cause).constData());
}

INSTANTIATE_TEST_SUITE_P(Replies, CmpBadReply, ::testing::ValuesIn(badReplies),
                         [](const ::testing::TestParamInfo<BadReply>& tried) {
                             return tried.param.name;
                         });

namespace {

// Others who would like to be the authority.
struct Strangers {
    // Under the authority's own name.
    Authority issuer{"Castelvane Demo CA"};
    MessageSigner signer{issuer, "Castelvane Message Desk"};
};

using Identity = CmpTestAuthority::Identity;

struct BadAuthority {
    const char* name;
    // In docs/enrolment.md.
    const char* title;
    std::function<void(Identity&, const Strangers&, const MessageSigner& expired)> identity;
    std::function<void(CmpTestAuthority&)> behaviour;
    const char* cause;
    const char* text;
    bool bySecret;
    // Confirmations that tell the authority that its certificate is the wrong one.
    int rejectedByClient;
};

void PrintTo(const BadAuthority& bad, std::ostream* to)
{
    *to << bad.name;
}

void nothing(CmpTestAuthority& /*authority*/) {}
void usual(Identity& /*identity*/, const Strangers& /*strangers*/, const MessageSigner& /*expired*/)
{
}
void otherSecret(Identity& identity, const Strangers& /*strangers*/,
                 const MessageSigner& /*expired*/)
{
    identity.secret = "a guess";
}
void takesAll(CmpTestAuthority& authority)
{
    authority.takesBadProtection = true;
}
void refusesUnprotected(CmpTestAuthority& authority)
{
    authority.refusesEverything = true;
    authority.protectsNoErrors = true;
}

const BadAuthority badAuthorities[] = {
    {"otherSecret", "certificate, protected by another secret", otherSecret, takesAll, "untrusted",
     "not protected with the shared secret", true, 0},
    {"otherSecretRefusing", "refusal, protected by another secret", otherSecret, nothing,
     "untrusted", "anybody may have sent this answer", true, 0},
    {"signedInsteadOfSecret", "certificate, signed instead of protected by the secret",
     [](Identity& identity, const Strangers&, const MessageSigner&) { identity.secret.clear(); },
     takesAll, "untrusted", "signed instead of protected", true, 0},
    {"strangerUnderTheSameName", "certificate, signed by a stranger under the same name",
     [](Identity& identity, const Strangers& strangers, const MessageSigner&) {
         identity.issuer = &strangers.issuer;
         identity.signer = &strangers.signer;
     },
     takesAll, "untrusted", "not signed by whom it should be", false, 0},
    {"expiredSigner", "certificate, signed with an expired certificate",
     [](Identity& identity, const Strangers&, const MessageSigner& expired) {
         identity.signer = &expired;
     },
     nothing, "untrusted", "not signed by whom it should be", false, 0},
    {"unprotectedError", "refusal without protection", usual, refusesUnprotected, "untrusted",
     "anybody may have sent this answer", true, 0},
    {"unsignedError", "refusal without signature", usual, refusesUnprotected, "untrusted",
     "anybody may have sent this answer", false, 0},
    {"anotherKey", "certificate for another key", usual,
     [](CmpTestAuthority& authority) { authority.issuesForAnotherKey = true; }, "wrongCertificate",
     "for another key", true, 1},
    {"anotherHolder", "certificate of another holder", usual,
     [](CmpTestAuthority& authority) { authority.issuesForAnotherHolder = true; },
     "wrongCertificate", "TINIT-VRDLGU80A01H501U", false, 1},
    {"rejection", "rejection with reasons", usual,
     [](CmpTestAuthority& authority) {
         authority.rejection = Rejection{1 << OSSL_CMP_PKIFAILUREINFO_badPOP, "no"};
     },
     "refused", "the proof of possession is not valid; no", false, 0},
    {"errorMessage", "error message with reasons", usual,
     [](CmpTestAuthority& authority) { authority.refusesEverything = true; }, "refused",
     "operation not permitted", true, 0},
    {"confirmationRefused", "confirmation refused", usual,
     [](CmpTestAuthority& authority) { authority.refusesConfirmation = true; }, "refused",
     "The authority refuses", true, 0},
};

class CmpBadAuthority : public CmpHostile, public ::testing::WithParamInterface<BadAuthority> {};

}  // namespace

TEST_P(CmpBadAuthority, endsInItsError_andIssuedAfterwards)
{
    const auto& bad = GetParam();
    const Strangers strangers;
    const MessageSigner expired(issuer, "Castelvane Message Desk", -1);
    auto identity = usualIdentity();
    bad.identity(identity, strangers, expired);
    restartAuthority(identity);
    bad.behaviour(*authority);
    serve();
    const auto configuration = bad.bySecret ? withSecret() : withSignature();
    const auto failure = failureOf([&] { return enrol(configuration); });
    EXPECT_EQ(failure.cause, bad.cause);
    EXPECT_THAT(failure.text, HasSubstr(bad.text));
    EXPECT_EQ(authority->rejectedByClient, bad.rejectedByClient);
    EXPECT_EQ(authority->confirmed, 0);
    expectIssuedAfterwards(configuration, bad.title, quoted(bad.cause).constData());
}

INSTANTIATE_TEST_SUITE_P(Authorities, CmpBadAuthority, ::testing::ValuesIn(badAuthorities),
                         [](const ::testing::TestParamInfo<BadAuthority>& tried) {
                             return tried.param.name;
                         });

TEST_F(CmpHostile, answerOfAnEarlierTransaction_isNotTaken)
{
    QByteArray earlier;
    serve([&](const Received& received, int number) {
        const auto answer = authority->answerTo(received.body);
        if (number == 1) {
            earlier = answer;
        }
        return reply(200, cmpType, number > 2 ? earlier : answer);
    });
    ASSERT_TRUE(isIssued(enrol(withSecret())));
    const auto failure = failureOf([&] { return enrol(withSecret()); });
    EXPECT_EQ(failure.cause, "badAnswer");
    EXPECT_THAT(failure.text, HasSubstr("another exchange of messages"));
    expectIssuedAfterwards(withSecret(), "answer of an earlier transaction", "`badAnswer`");
}

TEST_F(CmpHostile, pinnedCertificateOfAnother_isUntrusted)
{
    serve();
    auto configuration = withSignature();
    for (const auto* name : {"Castelvane Message Desk", "Another Name"}) {
        const MessageSigner other(issuer, name);
        set(configuration, "server-certificate", file("pinned.pem", pemOf(other.certificate)));
        EXPECT_EQ(failureOf([&] { return enrol(configuration); }).cause, "untrusted") << name;
    }
    expectIssuedAfterwards(withSignature(), "signature by another than the pinned certificate",
                           "`untrusted`");
}

TEST_F(CmpHostile, expiredTlsCertificate_isUntrustedAndNothingIsSent)
{
    Wish web;
    web.subject = {{"CN", "web"}};
    web.beginsInSeconds = -7200;
    web.endsInSeconds = -3600;
    web.extensions = {"subjectAltName=IP:127.0.0.1"};
    const Key webKey = newKey();
    serve({}, Tls{issuer.issue(webKey.get(), web), webKey.get(), {}});
    auto configuration = withSecret();
    set(configuration, "anchors", file("tls.pem", issuer.pem()));
    const auto failure = failureOf([&] { return enrol(configuration); });
    EXPECT_EQ(failure.cause, "untrusted");
    EXPECT_THAT(failure.text, HasSubstr("expired"));
    EXPECT_EQ(server->requestCount(), 0);
    expectIssuedAfterwards(withSecret(), "expired TLS certificate", "`untrusted`");
}

TEST_F(CmpHostile, answerCutAtEveryByte_isAnErrorEachTime)
{
    int cut = 0;
    int whole = 1;
    serve([&](const Received& received, int /*number*/) {
        auto answer = answerOfAuthority(received);
        // Signatures differ in length; the last byte must not come.
        whole = answer.bytes.size();
        answer.cutAfter = std::min(cut, whole - 1);
        return answer;
    });
    const auto configuration = withSecret();
    for (; cut < whole; ++cut) {
        const auto failure = failureOf([&] { return enrol(configuration); });
        ASSERT_TRUE(failure.cause == "unreachable" || failure.cause == "badAnswer")
            << "cut after " << cut << ": " << failure.cause << ": " << failure.text;
    }
    EXPECT_GT(cut, 500);
    EXPECT_EQ(authority->confirmed, 0);
    expectIssuedAfterwards(configuration, "connection cut at each byte",
                           "`unreachable` or `badAnswer`");
}

TEST_F(CmpHostile, acknowledgementCutAtEveryByte_isFinishedLater)
{
    int cut = 0;
    int whole = 1;
    bool isCut = true;
    serve([&](const Received& received, int number) {
        auto answer = answerOfAuthority(received);
        if (isCut && number % 2 == 0) {
            whole = answer.bytes.size();
            answer.cutAfter = std::min(cut, whole - 1);
        }
        return answer;
    });
    const auto configuration = withSecret();
    QJsonObject state;
    for (; cut < whole; ++cut) {
        const auto answer = enrol(configuration);
        const auto* deferred = std::get_if<Deferred>(&answer);
        ASSERT_NE(deferred, nullptr) << "cut after " << cut;
        ASSERT_THAT(deferred->reason.toStdString(), HasSubstr("not acknowledged"))
            << "cut after " << cut;
        state = deferred->state;
    }
    EXPECT_GT(cut, 300);

    // The authority has closed the transaction, so the request is made anew.
    isCut = false;
    authority->bodyTypes.clear();
    EXPECT_TRUE(isIssued(enrol(configuration, state)));
    EXPECT_EQ(authority->bodyTypes,
              (QVector<int>{confirmationMessage, pkcs10Message, confirmationMessage}));
    expectRow(QStringLiteral("connection cut at each byte"), QStringLiteral("deferred | yes"));
}

TEST_F(CmpHostile, acknowledgementByAnotherSecret_isNotBelieved)
{
    auto identity = usualIdentity();
    identity.secret = "a guess";
    CmpTestAuthority other(identity);
    other.takesBadProtection = true;
    serve([&](const Received& received, int number) {
        const auto answerOfOther = other.answerTo(received.body);
        return number == 1 ? answerOfAuthority(received) : reply(200, cmpType, answerOfOther);
    });
    const auto answer = enrol(withSecret());
    const auto* deferred = std::get_if<Deferred>(&answer);
    ASSERT_NE(deferred, nullptr);
    EXPECT_THAT(deferred->reason.toStdString(), HasSubstr("not acknowledged"));
    expectIssuedAfterwards(withSecret(), "acknowledgement by another secret", "deferred");
}

}  // namespace trial
