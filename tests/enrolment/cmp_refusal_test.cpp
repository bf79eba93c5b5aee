// The authority's reasons in the person's language.

#include "cmp_fixture.h"
#include "expected_error.h"
#include "hosts/enrolment/cmp_refusal.h"
#include "hosts/texts/language.h"

#include <gmock/gmock.h>

#include <set>

namespace trial {

using enrolment::failureInfoInWords;
using ::testing::HasSubstr;
using texts::Language;

TEST(CmpFailureInfo, everyBit_hasWordsOfItsOwnInBothLanguages)
{
    for (const auto language : {Language::english, Language::italian}) {
        texts::setLanguage(language);
        std::set<QString> words;
        for (int bit = 0; bit <= OSSL_CMP_PKIFAILUREINFO_MAX; ++bit) {
            words.insert(failureInfoInWords(1 << bit));
        }
        EXPECT_EQ(words.size(), OSSL_CMP_PKIFAILUREINFO_MAX + 1U);
        EXPECT_EQ(words.count(QString()), 0U);
    }
}

TEST(CmpFailureInfo, noneAndUnknown_areEmpty)
{
    EXPECT_TRUE(failureInfoInWords(0).isEmpty());
    EXPECT_TRUE(failureInfoInWords(-1).isEmpty());
}

namespace {

using CmpRefusal = Cmp;

}  // namespace

TEST_F(CmpRefusal, statusAndFreeText_reachThePerson)
{
    serve();
    authority->rejection = Rejection{(1 << OSSL_CMP_PKIFAILUREINFO_badCertTemplate) |
                                         (1 << OSSL_CMP_PKIFAILUREINFO_unacceptedPolicy),
                                     "fiscal code \x1b[31mmissing"};
    auto failure = failureOf([&] { return enrol(withSecret()); });
    EXPECT_EQ(failure.cause, "refused");
    EXPECT_EQ(failure.text, "The authority refuses: certificate policy not accepted; necessary "
                            "data of the request are missing or not valid; fiscal code "
                            "?[31mmissing.");

    texts::setLanguage(Language::italian);
    failure = failureOf([&] { return enrol(withSecret()); });
    EXPECT_EQ(failure.text, "L'autorità rifiuta: politica del certificato non ammessa; alla "
                            "richiesta mancano dati necessari, o non sono validi; fiscal code "
                            "?[31mmissing.");
}

TEST_F(CmpRefusal, reasonWithACure_namesIt)
{
    serve();
    authority->rejection = Rejection{1 << OSSL_CMP_PKIFAILUREINFO_badTime, nullptr};
    const auto failure = failureOf([&] { return enrol(withSecret()); });
    EXPECT_EQ(failure.cure, "Set this computer's clock, then try again.");
}

TEST_F(CmpRefusal, errorMessage_isReadLikeARejection)
{
    serve();
    authority->refusesEverything = true;
    const auto failure = failureOf([&] { return enrol(withSignature()); });
    EXPECT_EQ(failure.cause, "refused");
    EXPECT_THAT(failure.text, HasSubstr("operation not permitted"));
    EXPECT_THAT(failure.text, HasSubstr("error processing message"));
}

TEST_F(CmpRefusal, withoutReason_saysSo)
{
    serve();
    authority->rejection = Rejection{};
    const auto failure = failureOf([&] { return enrol(withSecret()); });
    EXPECT_EQ(failure.text, "The authority refuses: no reason given.");
}

}  // namespace trial
