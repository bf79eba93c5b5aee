// Renewals on SoftHSM2 tokens, of every kind, and what other people's programs make of them.

#include "cardlibs/x509/certificate.h"
#include "tests/cardlibs/outside_judges.h"
#include "tests/cardlibs/renewed_card.h"

#include <tuple>

namespace cardlibs_test {
namespace {

using softcard::KeyType;

enum class Way {
    normal,
    // The certificate to replace is on the card, but not named.
    nothingNamed,
    // It has left the card since the request.
    replacedOneGone,
};

using Case = std::tuple<const char*, KeyType, Way>;

std::string caseName(const ::testing::TestParamInfo<Case>& info)
{
    const auto& [kind, keyType, way] = info.param;
    return rowName(kind, keyType) + (way == Way::normal         ? "_normal"
                                     : way == Way::nothingNamed ? "_nothingNamed"
                                                                : "_replacedOneGone");
}

class Renewal : public RenewedCard, public ::testing::WithParamInterface<Case> {};

TEST_P(Renewal, onARealToken_newCertificateInUseAndOthersAgree)
{
    const auto& [kind, keyType, way] = GetParam();
    ASSERT_NO_FATAL_FAILURE(makeCardOfOthers());
    Due due = addDue(kind, keyType);
    ASSERT_NO_FATAL_FAILURE(requestFor(due));
    const cardlibs::Bytes subject =
        cardlibs::x509::Certificate::parse(due.certificate).value().subject();
    expectRequestJudgedGood(due.request, subject);
    expectCertificateJudgedGood(
        due.issued, softcard::DemoAuthority::certificateFile(folder().authority()), subject);
    EXPECT_TRUE(lookAtToken(cardPin).works(due.certificate));
    if (way == Way::replacedOneGone) {
        ASSERT_NO_FATAL_FAILURE(remove(due));
    }

    const ReadResult pending = read();
    EXPECT_NE(pendingOf(pending, kind), 0);
    EXPECT_EQ(storeOf(pending, kind).size(), way == Way::replacedOneGone ? 0u : 1u);
    ASSERT_EQ(install(due, way == Way::normal), 0) << lastError().text;
    EXPECT_EQ(pendingOf(read(), kind), 0);
    EXPECT_EQ(lookAtToken(cardPin).objects, foreignObjects + 3);
    expectForeignObjectsUntouched();

    const ObjectFiles after = objectFiles(folder().tokens());
    EXPECT_EQ(install(due, way == Way::normal), 0) << lastError().text;
    EXPECT_EQ(objectFiles(folder().tokens()), after);

    const auto renewed = descriptorOf(read(), certificateBytes(due.issued));
    expectCardUsable(renewed.at(ckaIdField), due.issued, cardPin);
    expectRenewed(due, way == Way::normal ? "normal" : "recovery");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Renewal,
    ::testing::Combine(::testing::Values("aut", "pra", "role", "cns", "cns-like"),
                       ::testing::Values(KeyType::rsa2048, KeyType::p256, KeyType::p384),
                       ::testing::Values(Way::normal, Way::nothingNamed, Way::replacedOneGone)),
    caseName);

}  // namespace
}  // namespace cardlibs_test
