#include "tests/support/eligibility_fixture.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

class AutEligibility : public EligibilityTest {};

TEST_F(AutEligibility, pendingKey_isCarriedAndLogged)
{
    for (const char* pending : {"", "AUT1", "AB:CD:EF", ":", "DS3"}) {
        SCOPED_TRACE(pending);
        Descriptor descriptor = renewable(aut());
        descriptor.pending = pending;
        check(aut(), descriptor);
        EXPECT_EQ(record(aut(), 1), renewableRecord(aut(), descriptor, holder));
        const std::string shown = *pending == '\0'
                                      ? std::string()
                                      : "[*]: Chiave Pending AUT: " + descriptor.pending + "\n\n";
        EXPECT_EQ(newLog(), block(aut(), 0, descriptor, holder) + shown +
                                "[*]: Certificato AUT. IUT: " + descriptor.iut + "\n\n");
    }
}

TEST_F(AutEligibility, pendingKeyOfASkippedCertificate_isLoggedOnlyBehindTheIssuerTest)
{
    Descriptor descriptor = renewable(aut());
    descriptor.pending = "AUT:1";
    descriptor.notAfter = inDays(200);
    check(aut(), descriptor);
    EXPECT_EQ(newLog(), block(aut(), 0, descriptor, holder) +
                            "[*]: Chiave Pending AUT: AUT:1\n\n"
                            "[*]: AUT non ancora in scadenza. Certificato saltato.\n\n");
    descriptor.issuer = "2.5.4.3=Another CA";
    check(aut(), descriptor);
    EXPECT_EQ(newLog(), block(aut(), 0, descriptor, holder) +
                            "[*]: AUT non rinnovabile: CA non Castelvane/Norbelta. Certificato "
                            "saltato\n\n");
    EXPECT_EQ(record(aut(), 1), skippedRecord(aut(), descriptor, holder, "Non rinnovabile"));
}

TEST_F(AutEligibility, identifierWithoutPendingKey_hasTwoColonsInARow)
{
    check(aut(), renewable(aut()));
    EXPECT_EQ(record(aut(), 1)["RENEW_CERTID"], "ABCDEF12G34H567I:2026500000001::0A1B2C");
}

TEST_F(AutEligibility, fieldsMissing_areReadAsEmpty)
{
    Descriptor full = renewable(aut());
    full.pending = "AUT1";
    const std::string text = authenticationText(full);
    for (int count = 1; count <= 10; ++count) {
        SCOPED_TRACE(count);
        Descriptor expected = full;
        std::string* const fields[] = {&expected.subject,   &expected.issuer, &expected.iut,
                                       &expected.policy,    &expected.serial, &expected.notBefore,
                                       &expected.notAfter,  &expected.ckaId,  &expected.pending,
                                       &expected.fiscalCode};
        for (int i = count; i < 10; ++i)
            fields[i]->clear();
        checkAll(aut(), {firstFields(text, count)});
        PlainRecord found = record(aut(), 1);
        if (count < 2)
            EXPECT_EQ(found, skippedRecord(aut(), expected, holder, "Non rinnovabile"));
        else if (count < 7)
            EXPECT_EQ(found, skippedRecord(aut(), expected, holder, aut().expiredLine));
        else
            EXPECT_EQ(found, renewableRecord(aut(), expected, holder));
    }
}

TEST_F(AutEligibility, fieldsBeyondTheTenth_areIgnored)
{
    Descriptor descriptor = renewable(aut());
    descriptor.subject = "2.5.4.3=N";
    descriptor.pending = "AUT1";
    checkAll(aut(), {authenticationText(descriptor) + "#more#and more"});
    EXPECT_EQ(record(aut(), 1), renewableRecord(aut(), descriptor, "CARDCODE"));
}

TEST_F(AutEligibility, elementZeroOfTheStore_isNeverRead)
{
    Descriptor other = renewable(aut());
    other.serial = "FROM ELEMENT ZERO";
    std::string zero = authenticationText(other);
    CertAUTStore[0] = zero.data();
    Descriptor descriptor = renewable(aut());
    std::string one = authenticationText(descriptor);
    CertAUTStore[1] = one.data();
    run(aut(), 0, 1);
    EXPECT_EQ(plain(context).count("AUT: 0"), 0U);
    EXPECT_EQ(record(aut(), 1), renewableRecord(aut(), descriptor, holder));
}

TEST_F(AutEligibility, countBelowTheStoresContents_onlySoManyRecords)
{
    Descriptor descriptor = renewable(aut());
    checkAll(aut(), {authenticationText(descriptor), authenticationText(descriptor)});
    context.clear();
    run(aut(), 0, 1);
    EXPECT_EQ(plain(context).size(), 1U);
}

TEST_F(AutEligibility, titleOrLimitation_meanNothingHere)
{
    Descriptor descriptor = renewable(aut());
    descriptor.subject += ",2.5.4.12=Presidente";
    descriptor.iut = "2026130170001";
    check(aut(), descriptor);
    EXPECT_EQ(record(aut(), 1), renewableRecord(aut(), descriptor, holder));
}

}  // namespace
