#include "csr_attributes.h"
#include "hosts/enrolment/certificate_bytes.h"
#include "hosts/enrolment/est_demands.h"
#include "tests/support/printing.h"
#include "trial_authority.h"

#include <gmock/gmock.h>

#include <algorithm>

using namespace enrolment;
using testing::HasSubstr;
using trial::csrAttributes;

namespace {

// The unmet demands, or "unreadable".
std::string compared(const QByteArray& attributes, const QByteArray& request)
{
    const auto unmet = unmetDemands(attributes, requestFrom(request).get());
    return unmet ? unmet->join(QStringLiteral("; ")).toStdString() : "unreadable";
}

}  // namespace

TEST(EstDemands, requestOnP256_isHeldToThem)
{
    const trial::Key key = trial::newKey();
    const QByteArray request =
        trial::requestPem(key.get(), trial::ada(), {"keyUsage=digitalSignature"});
    struct Row {
        const char* sequence;
        const char* unmet;
    };
    const Row rows[] = {
        {"", ""},
        {"a=OID:id-ecPublicKey", ""},
        {"a=OID:rsaEncryption", "a key of the type rsaEncryption"},
        {"a=OID:rsaEncryption\nb=OID:id-ecPublicKey", ""},
        {"a=OID:ecdsa-with-SHA256", ""},
        {"a=OID:ecdsa-with-SHA384", "a signature by ecdsa-with-SHA384"},
        {"a=OID:ecdsa-with-SHA384\nb=OID:ecdsa-with-SHA256", ""},
        {"a=OID:sha256", ""},
        {"a=OID:sha512", "a signature with the digest sha512"},
        {"a=OID:challengePassword", "a challenge password (1.2.840.113549.1.9.7)"},
        {"a=OID:keyUsage", ""},
        {"a=OID:subjectAltName", "the extension X509v3 Subject Alternative Name"},
        {"a=OID:serialNumber\nb=OID:CN", ""},
        {"a=OID:O", "organizationName (2.5.4.10) in the holder's name"},
        {"a=OID:1.2.3.4.5", ""},
        {"a=SEQUENCE:ec\n[ec]\na=OID:id-ecPublicKey\nb=SET:p256\n[p256]\na=OID:prime256v1", ""},
        {"a=SEQUENCE:ec\n[ec]\na=OID:id-ecPublicKey\nb=SET:p384\n[p384]\na=OID:secp384r1",
         "a key on the curve secp384r1"},
        {"a=SEQUENCE:rsa\n[rsa]\na=OID:rsaEncryption\nb=SET:bits\n[bits]\na=INTEGER:2048",
         "a key of the type rsaEncryption (1.2.840.113549.1.1.1); a key of at least 2048 bits"},
    };
    for (const Row& row : rows) {
        const std::string unmet = compared(csrAttributes(row.sequence), request);
        EXPECT_THAT(unmet, HasSubstr(row.unmet)) << row.sequence;
        EXPECT_EQ(unmet.empty(), *row.unmet == '\0') << row.sequence << ": " << unmet;
    }
}

TEST(EstDemands, extensionsWithValues_areComparedByValue)
{
    const trial::Key key = trial::newKey();
    const QByteArray request =
        trial::requestPem(key.get(), trial::ada(), {"keyUsage=digitalSignature"});
    const auto demanding = [](const char* extension) {
        return csrAttributes(QByteArray("a=SEQUENCE:r\n[r]\na=OID:extReq\nb=SET:s\n[s]\n"
                                        "a=SEQUENCE:list\n[list]\na=SEQUENCE:e\n[e]\n") +
                             extension);
    };
    EXPECT_EQ(compared(demanding("a=OID:keyUsage\nb=FORMAT:HEX,OCT:03020780"), request), "");
    EXPECT_EQ(compared(demanding("a=OID:keyUsage\nb=OCT:"), request), "");
    EXPECT_THAT(compared(demanding("a=OID:keyUsage\nb=FORMAT:HEX,OCT:03020640"), request),
                HasSubstr("X509v3 Key Usage (2.5.29.15) with another value"));
    EXPECT_THAT(compared(demanding("a=OID:extendedKeyUsage\nb=OCT:"), request),
                HasSubstr("the extension X509v3 Extended Key Usage"));
    EXPECT_THAT(compared(demanding("a=OID:1.2.3.4\nb=OCT:"), request),
                HasSubstr("the extension 1.2.3.4"));
}

TEST(EstDemands, exampleOfRfc7030AppendixA_isUnderstood)
{
    const trial::Key key = trial::newKey();
    const QByteArray example = QByteArray::fromBase64(
        "MEEGCSqGSIb3DQEJBzASBgcqhkjOPQIBMQcGBSuBBAAiMBYGCSqGSIb3DQEJDjEJBgcrBgEBAQEWBggqhkjOPQQDAw"
        "==");
    const std::string unmet = compared(example, trial::requestPem(key.get()));
    for (const char* demand :
         {"a challenge password", "the extension 1.3.6.1.1.1.1.22", "a key on the curve secp384r1",
          "a signature by ecdsa-with-SHA384"}) {
        EXPECT_THAT(unmet, HasSubstr(demand));
    }
    EXPECT_EQ(std::count(unmet.begin(), unmet.end(), ';'), 3);
}

TEST(EstDemands, bytesThatAreNone_areUnreadable)
{
    const trial::Key key = trial::newKey();
    const QByteArray request = trial::requestPem(key.get());
    const QByteArray good = csrAttributes("a=OID:id-ecPublicKey\nb=SEQUENCE:ec\n[ec]\n"
                                          "a=OID:id-ecPublicKey\nb=SET:s\n[s]\na=OID:prime256v1");
    EXPECT_EQ(compared(good, request), "");
    for (int bytes = 0; bytes < good.size(); ++bytes) {
        EXPECT_EQ(compared(good.left(bytes), request), "unreadable") << bytes;
    }
    for (const QByteArray& bytes :
         {good + "x", csrAttributes("a=INTEGER:1"), csrAttributes("a=SEQUENCE:s\n[s]\na=INT:1"),
          csrAttributes(
              "a=SEQUENCE:r\n[r]\na=OID:extReq\nb=SET:s\n[s]\na=SEQUENCE:l\n[l]\na=INT:1"),
          QByteArray("garbage")}) {
        EXPECT_EQ(compared(bytes, request), "unreadable");
    }
}
