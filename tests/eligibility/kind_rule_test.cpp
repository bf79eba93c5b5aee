#include "eligibility/kind_rule.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using eligibility::CertificateKind;
using eligibility::KindRule;

constexpr CertificateKind allKinds[]{CertificateKind::aut, CertificateKind::pra,
                                     CertificateKind::cns};

TEST(KindRules, everyKind_hasExactlyOneRow)
{
    const auto& rules = eligibility::kindRules();
    EXPECT_EQ(rules.size(), std::size(allKinds));
    for (const CertificateKind kind : allKinds) {
        EXPECT_EQ(std::count_if(rules.begin(), rules.end(),
                                [kind](const KindRule& rule) { return rule.kind == kind; }),
                  1);
        EXPECT_EQ(eligibility::ruleOf(kind).kind, kind);
    }
}

TEST(KindRules, everyRow_isComplete)
{
    for (const KindRule& rule : eligibility::kindRules()) {
        SCOPED_TRACE(rule.name.toStdString());
        EXPECT_EQ(rule.rowPrefix, rule.name + QStringLiteral(": "));
        EXPECT_GE(rule.storeCapacity, 1);
        EXPECT_GT(rule.fiscalCodeSpan, rule.fiscalCodePrefix);
        EXPECT_EQ(rule.authorityList, rule.authorities.join(QLatin1Char('-')));
        for (const QString& authority : rule.authorities) {
            EXPECT_EQ(authority, authority.toLower());
        }
        EXPECT_TRUE(rule.rejectedLogLine.startsWith(rule.name));
        EXPECT_TRUE(rule.notYetDueLogLine.startsWith(rule.name));
        EXPECT_TRUE(rule.expiredMode.startsWith(rule.name));
        EXPECT_NE(rule.recordedPendingKey, nullptr);
        EXPECT_NE(rule.usablePendingKey, nullptr);
        EXPECT_NE(rule.prepare, nullptr);
        EXPECT_NE(rule.classify, nullptr);
    }
}

}  // namespace
