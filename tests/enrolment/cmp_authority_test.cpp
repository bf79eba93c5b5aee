// Certificates by CMP when all goes well, by every protection there is.

#include "cmp_fixture.h"
#include "expected_error.h"

namespace trial {

using enrolment::Issued;

namespace {

using CmpEnrolment = Cmp;

}  // namespace

TEST_F(CmpEnrolment, sharedSecret_bringsTheCertificateAndConfirmsIt)
{
    serve();
    EXPECT_TRUE(isIssued(enrol(withSecret())));
    EXPECT_EQ(authority->bodyTypes, (QVector<int>{pkcs10Message, confirmationMessage}));
    EXPECT_EQ(authority->issued, 1);
    EXPECT_EQ(authority->confirmed, 1);
}

TEST_F(CmpEnrolment, signature_bringsTheCertificateWithItsChain)
{
    serve();
    const auto answer = enrol(withSignature());
    ASSERT_TRUE(isIssued(answer));
    EXPECT_EQ(std::get<Issued>(answer).chain, std::vector<QByteArray>{issuer.der()});
    EXPECT_EQ(authority->confirmed, 1);
}

TEST_F(CmpEnrolment, pinnedServerCertificate_isEnough)
{
    serve();
    auto configuration = withSignature();
    drop(configuration, "server-anchors");
    set(configuration, "server-certificate", file("pinned.pem", pemOf(signer.certificate)));
    EXPECT_TRUE(isIssued(enrol(configuration)));
}

TEST_F(CmpEnrolment, issuerAnchors_verifyTheCertificate)
{
    serve();
    auto configuration = withSecret();
    set(configuration, "issuer-anchors", file("issuers.pem", issuer.pem()));
    EXPECT_TRUE(isIssued(enrol(configuration)));
}

TEST_F(CmpEnrolment, https_verifiesTheWebServerByItsOwnAnchors)
{
    Wish web;
    web.subject = {{"CN", "web"}};
    web.extensions = {"subjectAltName=IP:127.0.0.1"};
    const Key webKey = newKey();
    serve({}, Tls{issuer.issue(webKey.get(), web), webKey.get(), {}});
    auto configuration = withSecret();
    set(configuration, "anchors", file("tls.pem", issuer.pem()));
    EXPECT_TRUE(isIssued(enrol(configuration)));

    const Authority stranger("Stranger");
    set(configuration, "anchors", file("tls.pem", stranger.pem()));
    EXPECT_EQ(failureOf([&] { return enrol(configuration); }).cause, "untrusted");
    EXPECT_EQ(authority->issued, 1);
}

TEST_F(CmpEnrolment, profileWithSlash_isThePathAtTheServer)
{
    QByteArray path;
    serve([&](const Received& received, int /*number*/) {
        path = received.path;
        return answerOfAuthority(received);
    });
    auto configuration = withSecret();
    set(configuration, "profile.1.3.76.16.5", QStringLiteral("/.well-known/cmp/p/signature"));
    auto asked = request();
    asked.policy = QStringLiteral("1.3.76.16.5");
    EXPECT_TRUE(isIssued(enrolment::authority(configuration)->enrol(asked)));
    EXPECT_EQ(path, "/.well-known/cmp/p/signature");
}

TEST_F(CmpEnrolment, profileWithoutSlash_isNamedInTheRequestAlone)
{
    // id-it-certProfile, and the SEQUENCE OF UTF8String with the name.
    const auto item = QByteArray::fromHex("06082b06010505070415"
                                          "300b0c097369676e6174757265");
    std::vector<bool> named;
    serve([&](const Received& received, int /*number*/) {
        named.push_back(received.body.contains(item));
        return answerOfAuthority(received);
    });
    auto configuration = withSecret();
    set(configuration, "profile", QStringLiteral("signature"));
    EXPECT_TRUE(isIssued(enrol(configuration)));
    EXPECT_EQ(named, (std::vector<bool>{true, false}));
}

TEST_F(CmpEnrolment, policyWithoutProfile_sendsNothing)
{
    serve();
    auto asked = request();
    asked.policy = QStringLiteral("1.2.3");
    const auto failure =
        failureOf([&] { return enrolment::authority(withSecret())->enrol(asked); });
    EXPECT_EQ(failure.cause, "policyUnsupported");
    EXPECT_EQ(server->requestCount(), 0);
}

TEST_F(CmpEnrolment, probe_knowsARightAndAWrongSecret)
{
    serve();
    EXPECT_NO_THROW(enrolment::authority(withSecret())->probe());
    EXPECT_EQ(authority->bodyTypes, QVector<int>{generalMessage});
    auto configuration = withSecret();
    set(configuration, "secret-file", file("other", "something else"));
    EXPECT_THROW(enrolment::authority(configuration)->probe(), enrolment::EnrolmentError);
    EXPECT_EQ(authority->issued, 0);
}

}  // namespace trial
