// The authority's reasons in the person's language.

#include "hosts/enrolment/cmp_refusal.h"
#include "hosts/texts/language.h"
#include "tests/enrolment/cmp_fixture.h"

#include <set>

namespace cmp_tests {

using enrolment::Cause;
using enrolment::failureInfoInWords;
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
    auto error = errorOf(withSecret());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::refused);
    EXPECT_EQ(error->text(),
              QStringLiteral("The authority refuses: certificate policy not accepted; necessary "
                             "data of the request are missing or not valid; fiscal code "
                             "?[31mmissing."));

    texts::setLanguage(Language::italian);
    error = errorOf(withSecret());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text(),
              QStringLiteral("L'autorità rifiuta: politica del certificato non ammessa; alla "
                             "richiesta mancano dati necessari, o non sono validi; fiscal code "
                             "?[31mmissing."));
}

TEST_F(CmpRefusal, reasonWithACure_namesIt)
{
    serve();
    authority->rejection = Rejection{1 << OSSL_CMP_PKIFAILUREINFO_badTime, nullptr};
    const auto error = errorOf(withSecret());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cure(), QStringLiteral("Set this computer's clock, then try again."));
}

TEST_F(CmpRefusal, errorMessage_isReadLikeARejection)
{
    serve();
    authority->refusesRequestsAltogether = true;
    const auto error = errorOf(withSignature());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->cause(), Cause::refused);
    EXPECT_TRUE(error->text().contains(QStringLiteral("operation not permitted")))
        << qPrintable(error->text());
    EXPECT_TRUE(error->text().contains(QStringLiteral("error processing message")))
        << qPrintable(error->text());
}

TEST_F(CmpRefusal, withoutReason_saysSo)
{
    serve();
    authority->rejection = Rejection{};
    const auto error = errorOf(withSecret());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text(), QStringLiteral("The authority refuses: no reason given."));
}

}  // namespace cmp_tests
