// The examples of docs/enrolment.md for CMP, run as they are printed there.

#include "cmp_fixture.h"
#include "enrolment_page.h"
#include "expected_error.h"

namespace trial {

namespace {

class CmpPage : public Cmp {
protected:
    void SetUp() override
    {
        serve([this](const Received& received, int /*number*/) {
            paths.append(received.path);
            return answerOfAuthority(received);
        });
        QByteArray configuration = example(QStringLiteral("ini"));
        ASSERT_EQ(configuration.count("http://cmp.example/"), 2);
        configuration.replace("http://cmp.example", server->address().toLatin1());
        path = file("authorities.ini", configuration);
        file("cmp-secret", "correct horse battery staple\n");
        file("desk.pem", pemOf(client.certificate));
        file("desk.key", keyPem(client.key.get()));
        file("servers.pem", issuer.pem());
    }

    enrolment::Answer enrolAt(const char* name)
    {
        auto asked = request();
        asked.policy = QStringLiteral("1.3.76.16.3");
        return enrolment::authority(enrolment::configurationFrom(QString::fromLatin1(name), path))
            ->enrol(asked);
    }

    QString path;
    QList<QByteArray> paths;
};

}  // namespace

TEST_F(CmpPage, castle_issuesByTheSharedSecret)
{
    EXPECT_TRUE(isIssued(enrolAt("castle")));
    EXPECT_EQ(paths, (QList<QByteArray>{"/pkix", "/pkix"}));
}

TEST_F(CmpPage, keep_issuesByTheSignatureAtThePathOfThePolicy)
{
    EXPECT_TRUE(isIssued(enrolAt("keep")));
    EXPECT_EQ(paths,
              (QList<QByteArray>{"/.well-known/cmp/p/signature", "/.well-known/cmp/p/signature"}));
}

TEST_F(CmpPage, addressAlone_isNotEnough)
{
    const auto configuration =
        enrolment::configurationFrom(QStringLiteral("cmp:") + server->address(), QString());
    EXPECT_EQ(failureOf([&] { return enrolment::authority(configuration); }).cause,
              "misconfigured");
}

TEST_F(CmpPage, keys_areAllExplained)
{
    const QString page = enrolmentPage();
    for (const auto* name :
         {"secret-reference", "secret-file", "signer-certificate", "signer-key-file",
          "signer-key-password-file", "server-anchors", "server-certificate"}) {
        EXPECT_TRUE(page.contains(QStringLiteral("`%1`").arg(QLatin1String(name)))) << name;
    }
}

}  // namespace trial
