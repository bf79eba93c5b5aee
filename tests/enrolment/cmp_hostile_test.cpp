// Authorities, web servers and strangers that do not keep to the rules: each ends in an error that
// says so, and the same request brings a certificate from a good authority afterwards.

#include "hosts/enrolment/cmp_authority.h"
#include "tests/enrolment/cmp_fixture.h"

#include <algorithm>

namespace cmp_tests {

using enrolment::Cause;
using enrolment::Configuration;
using enrolment::Deferred;
using enrolment::EnrolmentError;
using enrolment::Issued;

namespace {

class CmpHostile : public Cmp {
protected:
    // The authority as it should be, and the same request.
    void expectIssuedAfterwards(const Configuration& good)
    {
        restartAuthority(usualProtection());
        server.reset();
        serve();
        auto configuration = good;
        configuration.values.insert(QStringLiteral("url"), server->url());
        const auto answer = enrol(configuration);
        const auto* issued = std::get_if<Issued>(&answer);
        ASSERT_NE(issued, nullptr);
        EXPECT_TRUE(answersRequest(*issued));
    }
};

// How the answer to the first request is spoilt; the authority has made it by then.
using Spoil = std::function<void(ServedReply&, const ReceivedRequest&)>;

struct BadReply {
    const char* name;
    Spoil spoil;
    Cause cause;
    // A part of the error's text.
    const char* text;
};

void PrintTo(const BadReply& bad, std::ostream* to)
{
    *to << bad.name;
}

Spoil status(int status)
{
    return [status](ServedReply& reply, const ReceivedRequest&) {
        reply = {};
        reply.status = status;
        reply.contentType = "text/html";
        reply.body = "<p>no</p>";
    };
}

const BadReply badReplies[] = {
    {"slow",
     [](ServedReply& reply, const ReceivedRequest&) {
         reply.delayPerByte = std::chrono::milliseconds(50);
     },
     Cause::unreachable, "did not answer in time"},
    {"endless", [](ServedReply& reply, const ReceivedRequest&) { reply.isEndless = true; },
     Cause::badAnswer, "larger than 1 MiB"},
    {"wrongType",
     [](ServedReply& reply, const ReceivedRequest&) { reply.contentType = "text/html"; },
     Cause::badAnswer, "not of the CMP type"},
    {"noType", [](ServedReply& reply, const ReceivedRequest&) { reply.contentType.clear(); },
     Cause::badAnswer, "not of the CMP type"},
    {"garbage",
     [](ServedReply& reply, const ReceivedRequest&) { reply.body = QByteArray(1000, 'x'); },
     Cause::badAnswer, "not a readable CMP message"},
    {"empty", [](ServedReply& reply, const ReceivedRequest&) { reply.body.clear(); },
     Cause::badAnswer, "not a readable CMP message"},
    {"byteBehind", [](ServedReply& reply, const ReceivedRequest&) { reply.body.append('\0'); },
     Cause::badAnswer, "not a readable CMP message"},
    {"bitFlipped",
     [](ServedReply& reply, const ReceivedRequest&) {
         const int place = reply.body.size() / 2;
         reply.body[place] = static_cast<char>(reply.body.at(place) ^ 1);
     },
     Cause::untrusted, "not protected with the shared secret"},
    {"ownMessageReflected",
     [](ServedReply& reply, const ReceivedRequest& received) { reply.body = received.body; },
     Cause::badAnswer, "another exchange of messages"},
    {"redirect",
     [](ServedReply& reply, const ReceivedRequest&) {
         reply = {};
         reply.status = 302;
         reply.extraHeader = "Location: http://127.0.0.1:1/elsewhere";
     },
     Cause::badAnswer, "redirects elsewhere"},
    {"notFound", status(404), Cause::misconfigured, "no CMP service at this address"},
    {"forbidden", status(403), Cause::refused, "refuses the access (HTTP 403)"},
    {"serverError", status(500), Cause::unreachable, "gives an error (HTTP 500)"},
    {"teapot", status(418), Cause::badAnswer, "gives an error (HTTP 418)"},
};

class CmpBadReply : public CmpHostile, public ::testing::WithParamInterface<BadReply> {};

}  // namespace

TEST_P(CmpBadReply, endsInItsError_andIssuedAfterwards)
{
    const auto& bad = GetParam();
    serve([&](const ReceivedRequest& received) {
        auto reply = answerOfAuthority(received);
        bad.spoil(reply, received);
        return reply;
    });
    auto configuration = withSecret();
    configuration.values.insert(QStringLiteral("time-limit"), QStringLiteral("2"));
    const auto error = errorOf(configuration);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), bad.cause) << error->what();
    EXPECT_TRUE(error->text().contains(QString::fromLatin1(bad.text))) << error->what();
    EXPECT_EQ(server->requests(), 1);
    expectIssuedAfterwards(configuration);
}

INSTANTIATE_TEST_SUITE_P(Replies, CmpBadReply, ::testing::ValuesIn(badReplies),
                         [](const ::testing::TestParamInfo<BadReply>& tried) {
                             return tried.param.name;
                         });

namespace {

struct BadAuthority {
    const char* name;
    bool bySecret;
    // Changes whom the authority is, and how it behaves.
    std::function<void(Protection&, const Credential& issuer)> protection;
    std::function<void(CmpTestAuthority&)> behaviour;
    Cause cause;
    const char* text;
    int rejectedByClient;
};

void PrintTo(const BadAuthority& bad, std::ostream* to)
{
    *to << bad.name;
}

const Credential& stranger()
{
    static const Credential made = newCredential("Castelvane Demo CA", Use::authority);
    return made;
}

const Credential& expiredSigner(const Credential& issuer)
{
    static const Credential made = newCredential("Night Desk", Use::messageSigner, &issuer, -1);
    return made;
}

void nothing(CmpTestAuthority&) {}
void usual(Protection&, const Credential&) {}

const BadAuthority badAuthorities[] = {
    {"otherSecret", true,
     [](Protection& protection, const Credential&) { protection.secret = "a guess"; },
     [](CmpTestAuthority& authority) { authority.takesBadProtection = true; }, Cause::untrusted,
     "not protected with the shared secret", 0},
    {"otherSecretRefusing", true,
     [](Protection& protection, const Credential&) { protection.secret = "a guess"; }, nothing,
     Cause::untrusted, "anybody may have sent this answer", 0},
    {"signedInsteadOfSecret", true,
     [](Protection& protection, const Credential&) { protection.secret.clear(); },
     [](CmpTestAuthority& authority) { authority.takesBadProtection = true; }, Cause::untrusted,
     "The answer is signed instead of", 0},
    {"strangerUnderTheSameName", false,
     [](Protection& protection, const Credential&) { protection.issuer = &stranger(); },
     [](CmpTestAuthority& authority) { authority.takesBadProtection = true; }, Cause::untrusted,
     "not signed by whom it should be", 0},
    {"expiredSigner", false,
     [](Protection& protection, const Credential& issuer) {
         protection.signer = &expiredSigner(issuer);
     },
     nothing, Cause::untrusted, "not signed by whom it should be", 0},
    {"unprotectedError", true, usual,
     [](CmpTestAuthority& authority) {
         authority.refusesRequestsAltogether = true;
         authority.sendUnprotectedErrors();
     },
     Cause::untrusted, "anybody may have sent this answer", 0},
    {"unprotectedErrorUnsigned", false, usual,
     [](CmpTestAuthority& authority) {
         authority.refusesRequestsAltogether = true;
         authority.sendUnprotectedErrors();
     },
     Cause::untrusted, "anybody may have sent this answer", 0},
    {"anotherKey", true, usual,
     [](CmpTestAuthority& authority) { authority.issuesForAnotherKey = true; },
     Cause::wrongCertificate, "for another key", 1},
    {"anotherKeySigned", false, usual,
     [](CmpTestAuthority& authority) { authority.issuesForAnotherKey = true; },
     Cause::wrongCertificate, "for another key", 1},
    {"anotherHolder", true, usual,
     [](CmpTestAuthority& authority) { authority.issuesForAnotherHolder = true; },
     Cause::wrongCertificate, "TINIT-VRDLGI80A01H501U", 1},
    {"confirmationRefused", true, usual,
     [](CmpTestAuthority& authority) { authority.refusesConfirmation = true; }, Cause::refused,
     "The authority refuses", 0},
    {"rejection", false, usual,
     [](CmpTestAuthority& authority) {
         authority.rejection = Rejection{1 << OSSL_CMP_PKIFAILUREINFO_badPOP, "no"};
     },
     Cause::refused, "the proof of possession is not valid; no", 0},
};

class CmpBadAuthority : public CmpHostile, public ::testing::WithParamInterface<BadAuthority> {};

}  // namespace

TEST_P(CmpBadAuthority, endsInItsError_andIssuedAfterwards)
{
    const auto& bad = GetParam();
    auto protection = usualProtection();
    bad.protection(protection, issuer);
    restartAuthority(protection);
    bad.behaviour(*authority);
    serve();
    const auto configuration = bad.bySecret ? withSecret() : withSignature();
    const auto error = errorOf(configuration);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), bad.cause) << error->what();
    EXPECT_TRUE(error->text().contains(QString::fromLatin1(bad.text))) << error->what();
    EXPECT_EQ(authority->rejectedByClient, bad.rejectedByClient);
    EXPECT_EQ(authority->confirmed, 0);
    expectIssuedAfterwards(configuration);
}

INSTANTIATE_TEST_SUITE_P(Authorities, CmpBadAuthority, ::testing::ValuesIn(badAuthorities),
                         [](const ::testing::TestParamInfo<BadAuthority>& tried) {
                             return tried.param.name;
                         });

TEST_F(CmpHostile, answerOfAnEarlierTransaction_isNotTaken)
{
    QByteArray earlier;
    serve([&](const ReceivedRequest& received) {
        auto reply = answerOfAuthority(received);
        if (received.number == 1) {
            earlier = reply.body;
        } else if (received.number > 2) {
            reply.body = earlier;
        }
        return reply;
    });
    ASSERT_TRUE(std::holds_alternative<Issued>(enrol(withSecret())));
    const auto error = errorOf(withSecret());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::badAnswer);
    EXPECT_TRUE(error->text().contains(QStringLiteral("another exchange of messages")));
    expectIssuedAfterwards(withSecret());
}

TEST_F(CmpHostile, pinnedCertificateOfAnother_isUntrusted)
{
    serve();
    auto configuration = withSignature();
    for (const auto* name : {"Castelvane Demo CA", "Another Name"}) {
        const Credential other = newCredential(name, Use::authority);
        configuration.values.insert(
            QStringLiteral("server-certificate"),
            file(QStringLiteral("pinned.pem"), pemOf(other.certificate.get())));
        const auto error = errorOf(configuration);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->cause(), Cause::untrusted) << error->what();
    }
    expectIssuedAfterwards(withSignature());
}

TEST_F(CmpHostile, expiredTlsCertificate_isUntrustedAndNothingIsSent)
{
    const Credential web = newCredential("web", Use::tlsServer, &issuer, -1);
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> tls(SSL_CTX_new(TLS_server_method()),
                                                           &SSL_CTX_free);
    ASSERT_EQ(SSL_CTX_use_certificate(tls.get(), web.certificate.get()), 1);
    ASSERT_EQ(SSL_CTX_use_PrivateKey(tls.get(), web.key.get()), 1);
    serve({}, tls.get());
    auto configuration = withSecret();
    configuration.values.insert(QStringLiteral("anchors"),
                                file(QStringLiteral("tls.pem"), pemOf(issuer.certificate.get())));
    const auto error = errorOf(configuration);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::untrusted);
    EXPECT_TRUE(error->text().contains(QStringLiteral("expired"))) << error->what();
    EXPECT_EQ(server->requests(), 0);
    expectIssuedAfterwards(withSecret());
}

TEST_F(CmpHostile, answerCutAtEveryByte_isAnErrorEachTime)
{
    int cut = 0;
    int whole = 1;
    serve([&](const ReceivedRequest& received) {
        auto reply = answerOfAuthority(received);
        // Signatures differ in length; the last byte must not come.
        whole = wireFormOf(reply).size();
        reply.cutAfter = std::min(cut, whole - 1);
        return reply;
    });
    const auto configuration = withSecret();
    for (; cut < whole; ++cut) {
        const auto error = errorOf(configuration);
        ASSERT_TRUE(error) << "cut after " << cut;
        ASSERT_TRUE(error->cause() == Cause::unreachable || error->cause() == Cause::badAnswer)
            << "cut after " << cut << ": " << error->what();
    }
    EXPECT_GT(cut, 500);
    EXPECT_EQ(authority->confirmed, 0);
    expectIssuedAfterwards(configuration);
}

TEST_F(CmpHostile, acknowledgementCutAtEveryByte_isFinishedLater)
{
    int cut = 0;
    int whole = 1;
    serve([&](const ReceivedRequest& received) {
        auto reply = answerOfAuthority(received);
        if (received.number % 2 == 0) {
            whole = wireFormOf(reply).size();
            reply.cutAfter = std::min(cut, whole - 1);
        }
        return reply;
    });
    const auto configuration = withSecret();
    QJsonObject state;
    for (; cut < whole; ++cut) {
        const auto answer = enrol(configuration);
        const auto* deferred = std::get_if<Deferred>(&answer);
        ASSERT_NE(deferred, nullptr) << "cut after " << cut;
        ASSERT_TRUE(deferred->reason.contains(QStringLiteral("not acknowledged")))
            << "cut after " << cut << ": " << qPrintable(deferred->reason);
        state = deferred->state;
    }
    EXPECT_GT(cut, 300);

    // The authority has closed the transaction, so the request is made anew.
    auto again = request();
    again.state = state;
    server.reset();
    serve();
    auto good = configuration;
    good.values.insert(QStringLiteral("url"), server->url());
    const auto answer = enrolment::cmpAuthority(good)->enrol(again);
    ASSERT_TRUE(std::holds_alternative<Issued>(answer));
    EXPECT_TRUE(answersRequest(std::get<Issued>(answer)));
}

TEST_F(CmpHostile, acknowledgementWithoutProtection_isNotBelieved)
{
    // An authority that knows no secret and asks for none acknowledges.
    auto open = usualProtection();
    open.secret = "a guess";
    CmpTestAuthority other(open);
    other.takesBadProtection = true;
    serve([&](const ReceivedRequest& received) {
        if (received.number == 1) {
            static_cast<void>(other.answerTo(received.body));
            return answerOfAuthority(received);
        }
        ServedReply reply;
        reply.body = other.answerTo(received.body);
        return reply;
    });
    const auto answer = enrol(withSecret());
    const auto* deferred = std::get_if<Deferred>(&answer);
    ASSERT_NE(deferred, nullptr);
    EXPECT_TRUE(deferred->reason.contains(QStringLiteral("not acknowledged")));
    expectIssuedAfterwards(withSecret());
}

}  // namespace cmp_tests
