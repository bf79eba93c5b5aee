#include "tests/support/eligibility_fixture.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

class CnsEligibility : public EligibilityTest {};

TEST_F(CnsEligibility, policyAndIssuer_giveTheLabelsAndThePolicyToAskFor)
{
    struct Row {
        const char* policy;
        const char* issuer;
        const char* askedPolicy;
        const char* renewalLabel;
        const char* certificateLabel;
        const char* logged;
    };
    const Row table[] = {
        {"1.3.76.16.2.1", "Castelvane", "1.3.76.16.2.1", "certificato CNS", "Certificato CNS",
         "Certificato CNS. IUT: "},
        {"1.3.76.16.2.1", "Norbelta", "1.3.76.16.2.1", "certificato CNS", "Certificato CNS",
         "Certificato CNS. IUT: "},
        {"1.3.76.16.2.1", "PELLAROUX", "1.3.76.39.1.1.2", "certificato CNS", "Certificato CNS",
         "Certificato CNS. IUT: "},
        {"1.3.76.16.2.1", "castelvane for pellaroux", "1.3.76.39.1.1.2", "certificato CNS",
         "Certificato CNS", "Certificato CNS. IUT: "},
        {"1.3.76.39.1.1.2", "pellaroux", "1.3.76.39.1.1.2", "certificato CNDCEC CNS",
         "Certificato CNDCEC CNS", "Certificato CNDCEC CNS. IUT: "},
        {"1.3.76.39.1.1.2", "castelvane", "1.3.76.39.1.1.2", "certificato CNDCEC CNS",
         "Certificato CNDCEC CNS", "Certificato CNDCEC CNS. IUT: "},
        {"1.3.76.36.1.1.1", "castelvane", "1.3.76.36.1.1.1", "certificato di AUTENTICAZIONE",
         "Certificato CNS Like", "Certificato CNS-Like (AUT). IUT: "},
        {"1.3.76.16.2.1 ", "pellaroux", "1.3.76.16.2.1 ", "certificato di AUTENTICAZIONE",
         "Certificato CNS Like", "Certificato CNS-Like (AUT). IUT: "},
        {"1.3.76.16.2.10", "castelvane", "1.3.76.16.2.10", "certificato di AUTENTICAZIONE",
         "Certificato CNS Like", "Certificato CNS-Like (AUT). IUT: "},
        {"", "castelvane", "", "certificato di AUTENTICAZIONE", "Certificato CNS Like",
         "Certificato CNS-Like (AUT). IUT: "},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(std::string(row.policy) + ", " + row.issuer);
        Descriptor descriptor = renewable(cns());
        descriptor.notAfter = inDays(10);
        descriptor.policy = row.policy;
        descriptor.issuer = row.issuer;
        check(cns(), descriptor);
        PlainRecord expected = certificateRecord(descriptor, holder);
        expected["policy"] = row.askedPolicy;
        expected["CERTIFICATO DA RINNOVARE"] = row.renewalLabel;
        expected["Certificato"] = row.certificateLabel;
        EXPECT_EQ(record(cns(), 1), expected);
        EXPECT_EQ(newLog(), block(cns(), 0, descriptor, holder) + "[*]: " + row.logged +
                                descriptor.iut + "\n\n");
    }
}

TEST_F(CnsEligibility, skippedCertificateOfTheThirdAuthority_keepsTheCardsPolicy)
{
    Descriptor descriptor = renewable(cns());
    descriptor.issuer = "pellaroux";
    descriptor.notAfter = inDays(100);
    check(cns(), descriptor);
    EXPECT_EQ(record(cns(), 1),
              skippedRecord(cns(), descriptor, holder, "Certificati non ancora in scadenza"));
}

TEST_F(CnsEligibility, pendingKey_isCarriedAndLogged)
{
    Descriptor descriptor = renewable(cns());
    descriptor.pending = "CN:S0";
    check(cns(), descriptor);
    EXPECT_EQ(record(cns(), 1), renewableRecord(cns(), descriptor, holder));
    EXPECT_EQ(record(cns(), 1)["RENEW_CERTID"], holder + ":2026500000001:CNS0:0A1B2C");
    EXPECT_EQ(newLog(), block(cns(), 0, descriptor, holder) +
                            "[*]: Chiave Pending CNS: CN:S0\n\n"
                            "[*]: Certificato CNS. IUT: 2026500000001\n\n");
}

TEST_F(CnsEligibility, reservedFlag_isNeverRead)
{
    for (const int reserved : {0, 1, -1}) {
        SCOPED_TRACE(reserved);
        context.clear();
        EXPECT_TRUE(controllo_pending_CNS(&context, reserved, 0, 0, nullptr));
        EXPECT_TRUE(context.isEmpty());
        EXPECT_TRUE(controllo_pending_CNS(&context, reserved, 1, 0, nullptr));
        EXPECT_EQ(plain(context).count("CNS: 0"), 1U);
    }
}

TEST_F(CnsEligibility, expiryVariable_isNeitherReadNorWritten)
{
    write(expiryCNSdate, sizeof expiryCNSdate, "20200101");
    Descriptor descriptor = renewable(cns());
    check(cns(), descriptor);
    EXPECT_STREQ(expiryCNSdate, "20200101");
    EXPECT_EQ(record(cns(), 1), renewableRecord(cns(), descriptor, holder));
}

TEST_F(CnsEligibility, fieldsMissing_areReadAsEmpty)
{
    Descriptor descriptor = renewable(cns());
    descriptor.pending = "";
    descriptor.fiscalCode = "";
    checkAll(cns(), {firstFields(authenticationText(descriptor), 8)});
    EXPECT_EQ(record(cns(), 1), renewableRecord(cns(), descriptor, holder));
}

}  // namespace
