#include "eligibility/signature_certificate.h"

#include <gtest/gtest.h>

namespace {

using eligibility::Candidate;
using eligibility::Surroundings;
using inventory::CertificateDescriptor;

struct OrganizationRow {
    const char* subject;
    const char* rewritten;
};

TEST(WithOrganization, subject_getsTheValueUpToTheNextAttribute)
{
    const OrganizationRow rows[]{
        // Everything up to the next "2." goes, the separator with it.
        {"2.5.4.6=IT,2.5.4.10=OLD,2.5.4.3=X", "2.5.4.6=IT,2.5.4.10=NEW2.5.4.3=X"},
        {"2.5.4.10=OLD+2.5.4.3=X", "2.5.4.10=NEW2.5.4.3=X"},
        // The first of several.
        {"2.5.4.10=A,2.5.4.10=B", "2.5.4.10=NEW2.5.4.10=B"},
        {"2.5.4.10=2.5.4.3=X", "2.5.4.10=NEW2.5.4.3=X"},
        // Nothing to replace, or no end of it.
        {"2.5.4.3=X", "2.5.4.3=X"},
        {"2.5.4.3=X,2.5.4.10=OLD", "2.5.4.3=X,2.5.4.10=OLD"},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(eligibility::withOrganization(row.subject, QStringLiteral("NEW")).toStdString(),
                  row.rewritten);
    }
}

struct PendingKeyRow {
    const char* descriptor;
    bool marker;
    const char* recorded;
    const char* usable;
};

TEST(SignaturePendingKey, fieldsAndMarker_decideWhichLabelIsTaken)
{
    const PendingKeyRow rows[]{
        {"0#1#2#3#4#5#6#7#8#DS1#10", false, "DS1", "DS1"},
        {"0#1#2#3#4#5#6#7#8#DS1#10", true, "DS1", "DS1"},
        {"0#1#2#3#4#5#6#7#8##10", true, "", ""},
        {"0#1#2#3#4#5#6#7#8#ds1#10#11", true, "ds1", "ds1"},
        {"0#1#2#3#4#5#6#7#8#DS1", false, "DS1", "DS1"},
        {"0#1#2#3#4#5#6#7#8#DS1", true, "DS7", "DS7"},
        {"0#1#2#3#4#5#6#7#8#9", false, "9", ""},
        {"0#1#2#3#4#5#6#7#8", false, "", ""},
        {"0#1#2#3#4#5#6#7#8", true, "DS7", "DS7"},
        {"", true, "DS7", "DS7"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.descriptor);
        const CertificateDescriptor descriptor{QString(row.descriptor)};
        const Surroundings surroundings{nullptr, nullptr, [&row] { return row.marker; }, nullptr};
        const Candidate candidate{descriptor, surroundings, QStringLiteral("DS7"), {}, {}};
        EXPECT_EQ(eligibility::signaturePendingKey(candidate).toStdString(), row.recorded);
        EXPECT_EQ(eligibility::usableSignaturePendingKey(candidate).toStdString(), row.usable);
    }
}

TEST(UsableSignaturePendingKey, labelOfAnotherKind_isNotUsed)
{
    const CertificateDescriptor descriptor{QStringLiteral("short")};
    const Surroundings surroundings{nullptr, nullptr, [] { return true; }, nullptr};
    const Candidate candidate{descriptor, surroundings, QStringLiteral("AUT0"), {}, {}};
    EXPECT_EQ(eligibility::signaturePendingKey(candidate), QStringLiteral("AUT0"));
    EXPECT_TRUE(eligibility::usableSignaturePendingKey(candidate).isEmpty());
}

}  // namespace
