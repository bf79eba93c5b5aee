// Certificates by CMP when all goes well, by every protection there is.

#include "hosts/enrolment/cmp_authority.h"
#include "tests/enrolment/cmp_fixture.h"

#include <QJsonDocument>

#include <openssl/ssl.h>

namespace cmp_tests {

using enrolment::Cause;
using enrolment::Configuration;
using enrolment::EnrolmentError;
using enrolment::Issued;

namespace {

// Body types, RFC 4210 5.1.2.
constexpr int pkcs10Request = 4;
constexpr int generalMessage = 21;
constexpr int confirmation = 24;

using CmpEnrolment = Cmp;

void expectIssued(const enrolment::Answer& answer, const std::function<bool(const Issued&)>& fits)
{
    const auto* issued = std::get_if<Issued>(&answer);
    ASSERT_NE(issued, nullptr) << qPrintable(std::get<enrolment::Deferred>(answer).reason);
    EXPECT_TRUE(fits(*issued));
}

}  // namespace

TEST_F(CmpEnrolment, sharedSecret_bringsTheCertificateAndConfirmsIt)
{
    serve();
    expectIssued(enrol(withSecret()),
                 [this](const Issued& issued) { return answersRequest(issued); });
    EXPECT_EQ(authority->bodyTypes, (QVector<int>{pkcs10Request, confirmation}));
    EXPECT_EQ(authority->issued, 1);
    EXPECT_EQ(authority->confirmed, 1);
}

TEST_F(CmpEnrolment, signature_bringsTheCertificateWithItsChain)
{
    serve();
    expectIssued(enrol(withSignature()), [this](const Issued& issued) {
        return answersRequest(issued) && issued.chain.size() == 1 &&
               issued.chain.front() == derOf(issuer.certificate.get());
    });
    EXPECT_EQ(authority->confirmed, 1);
}

TEST_F(CmpEnrolment, pinnedServerCertificate_isEnough)
{
    serve();
    auto configuration = withSignature();
    configuration.values.remove(QStringLiteral("server-anchors"));
    configuration.values.insert(
        QStringLiteral("server-certificate"),
        file(QStringLiteral("pinned.pem"), pemOf(issuer.certificate.get())));
    expectIssued(enrol(configuration),
                 [this](const Issued& issued) { return answersRequest(issued); });
}

TEST_F(CmpEnrolment, issuerAnchors_verifyTheCertificate)
{
    serve();
    auto configuration = withSecret();
    configuration.values.insert(
        QStringLiteral("issuer-anchors"),
        file(QStringLiteral("issuers.pem"), pemOf(issuer.certificate.get())));
    expectIssued(enrol(configuration),
                 [this](const Issued& issued) { return answersRequest(issued); });
}

TEST_F(CmpEnrolment, https_verifiesTheWebServerByItsOwnAnchors)
{
    const Credential web = newCredential("web", Use::tlsServer, &issuer);
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> tls(SSL_CTX_new(TLS_server_method()),
                                                           &SSL_CTX_free);
    ASSERT_EQ(SSL_CTX_use_certificate(tls.get(), web.certificate.get()), 1);
    ASSERT_EQ(SSL_CTX_use_PrivateKey(tls.get(), web.key.get()), 1);
    serve({}, tls.get());
    auto configuration = withSecret();
    configuration.values.insert(QStringLiteral("anchors"),
                                file(QStringLiteral("tls.pem"), pemOf(issuer.certificate.get())));
    expectIssued(enrol(configuration),
                 [this](const Issued& issued) { return answersRequest(issued); });

    const Credential stranger = newCredential("Stranger", Use::authority);
    configuration.values.insert(QStringLiteral("anchors"),
                                file(QStringLiteral("tls.pem"), pemOf(stranger.certificate.get())));
    const auto error = errorOf(configuration);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::untrusted);
    EXPECT_EQ(authority->issued, 1);
}

TEST_F(CmpEnrolment, profileWithSlash_isThePathAtTheServer)
{
    QByteArray path;
    serve([&](const ReceivedRequest& received) {
        path = received.path;
        return answerOfAuthority(received);
    });
    auto configuration = withSecret();
    configuration.values.insert(QStringLiteral("profile.1.3.76.16.5"),
                                QStringLiteral("/.well-known/cmp/p/signature"));
    auto asked = request();
    asked.policy = QStringLiteral("1.3.76.16.5");
    expectIssued(enrolment::cmpAuthority(configuration)->enrol(asked),
                 [this](const Issued& issued) { return answersRequest(issued); });
    EXPECT_EQ(path, "/.well-known/cmp/p/signature");
}

TEST_F(CmpEnrolment, profileWithoutSlash_isNamedInTheRequestAlone)
{
    // id-it-certProfile, and the SEQUENCE OF UTF8String with the name.
    const auto item = QByteArray::fromHex("06082b06010505070415"
                                          "300b0c097369676e6174757265");
    std::vector<bool> named;
    serve([&](const ReceivedRequest& received) {
        named.push_back(received.body.contains(item));
        return answerOfAuthority(received);
    });
    auto configuration = withSecret();
    configuration.values.insert(QStringLiteral("profile"), QStringLiteral("signature"));
    expectIssued(enrol(configuration),
                 [this](const Issued& issued) { return answersRequest(issued); });
    EXPECT_EQ(named, (std::vector<bool>{true, false}));
}

TEST_F(CmpEnrolment, policyWithoutProfile_sendsNothing)
{
    serve();
    auto asked = request();
    asked.policy = QStringLiteral("1.2.3");
    try {
        static_cast<void>(enrolment::cmpAuthority(withSecret())->enrol(asked));
        ADD_FAILURE() << "no error";
    } catch (const EnrolmentError& error) {
        EXPECT_EQ(error.cause(), Cause::policyUnsupported);
    }
    EXPECT_EQ(server->requests(), 0);
}

TEST_F(CmpEnrolment, probe_knowsARightAndAWrongSecret)
{
    serve();
    EXPECT_NO_THROW(enrolment::cmpAuthority(withSecret())->probe());
    EXPECT_EQ(authority->bodyTypes, QVector<int>{generalMessage});
    auto configuration = withSecret();
    configuration.values.insert(QStringLiteral("secret-file"),
                                file(QStringLiteral("other"), "something else"));
    EXPECT_THROW(enrolment::cmpAuthority(configuration)->probe(), EnrolmentError);
    EXPECT_EQ(authority->issued, 0);
}

}  // namespace cmp_tests
