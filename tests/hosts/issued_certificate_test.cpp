#include "certificate_maker.h"
#include "hosts/console/issued_certificate.h"
#include "tests/support/printing.h"

#include <gtest/gtest.h>

using namespace console;
using hosts::certificateFrom;
using hosts::derOf;
using hosts::Key;
using hosts::newKey;
using hosts::pemOf;
using hosts::requestFor;

TEST(ReadCertificates, pemAmongOtherText_isFound)
{
    const Key key = newKey();
    const QByteArray pem = pemOf(certificateFrom(key.get(), "Ada").get());
    const auto certificates = readCertificates("Issuing...\n" + pem + "done\n");
    ASSERT_EQ(certificates.size(), 1U);
    EXPECT_EQ(certificates[0].pem, pem);
    EXPECT_EQ(certificates[0].subject, QStringLiteral("CN=Ada"));
    EXPECT_EQ(certificates[0].issuer, QStringLiteral("CN=Castelvane Demo CA"));
    EXPECT_EQ(certificates[0].notAfter, QDate(2030, 1, 20));
    EXPECT_FALSE(certificates[0].isAuthority);
}

TEST(ReadCertificates, der_becomesPem)
{
    const Key key = newKey();
    const auto certificate = certificateFrom(key.get(), "Ada");
    const auto certificates = readCertificates(derOf(certificate.get()));
    ASSERT_EQ(certificates.size(), 1U);
    EXPECT_EQ(certificates[0].pem, pemOf(certificate.get()));
}

TEST(ReadCertificates, textWithoutCertificate_givesNone)
{
    const Key key = newKey();
    QByteArray damaged = pemOf(certificateFrom(key.get(), "Ada").get());
    damaged.replace(damaged.indexOf('\n') + 5, 8, "########");
    for (const QByteArray& text : {QByteArray(), QByteArray("no"), damaged}) {
        EXPECT_TRUE(readCertificates(text).empty());
    }
}

TEST(CertificateFor, chainInAnyOrder_theOneWithTheKeyIsChosen)
{
    const Key authority = newKey();
    const Key holder = newKey();
    const QByteArray chain = pemOf(certificateFrom(authority.get(), "CA", true).get()) +
                             pemOf(certificateFrom(holder.get(), "Ada").get());
    const auto certificates = readCertificates(chain);
    ASSERT_EQ(certificates.size(), 2U);
    EXPECT_TRUE(certificates[0].isAuthority);

    const auto publicKey = requestPublicKey(requestFor(holder.get(), holder.get()));
    ASSERT_TRUE(publicKey);
    const auto found = certificateFor(*publicKey, certificates);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->subject, QStringLiteral("CN=Ada"));

    const Key stranger = newKey();
    const auto strange = requestPublicKey(requestFor(stranger.get(), stranger.get()));
    ASSERT_TRUE(strange);
    EXPECT_FALSE(certificateFor(*strange, certificates));
}

TEST(RequestPublicKey, requestThatItsKeyDidNotSign_isRefused)
{
    const Key key = newKey();
    const Key other = newKey();
    EXPECT_TRUE(requestPublicKey(requestFor(key.get(), key.get())));
    EXPECT_FALSE(requestPublicKey(requestFor(key.get(), other.get())));
    EXPECT_FALSE(requestPublicKey("no request"));
    EXPECT_FALSE(requestPublicKey(QByteArray()));
}
