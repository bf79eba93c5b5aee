// Several certificates of one card under renewal at once.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/renewed_card.h"

#include <gmock/gmock.h>

#include <map>
#include <tuple>

namespace cardlibs_test {
namespace {

using ::testing::SizeIs;

using softcard::KeyType;
namespace fault = cardlibs::state::fault;

using Kinds = std::vector<std::string>;

// Each set of two kinds and more, with at most one in the CNS position.
std::vector<Kinds> allMixtures()
{
    std::vector<Kinds> mixtures;
    const char* const numbered[] = {"aut", "pra", "role"};
    for (unsigned set = 0; set < 8; ++set)
        for (const char* const cns : {"", "cns", "cns-like"}) {
            Kinds kinds;
            for (unsigned at = 0; at < 3; ++at)
                if ((set & 1U << at) != 0)
                    kinds.emplace_back(numbered[at]);
            if (*cns != '\0')
                kinds.emplace_back(cns);
            if (kinds.size() > 1)
                mixtures.push_back(kinds);
        }
    return mixtures;
}

using MixtureCase = std::tuple<Kinds, KeyType>;

class RenewalMixture : public RenewedCard, public ::testing::WithParamInterface<MixtureCase> {
protected:
    // One certificate of each kind.
    std::vector<Due> addAll()
    {
        std::vector<Due> all;
        std::map<std::string, int> numbers;
        const auto& [kinds, keyType] = GetParam();
        for (const std::string& kind : kinds)
            all.push_back(addDue(kind, keyType, numbers[softcard::findKind(kind).label]++));
        return all;
    }

    void expectPending(const Due& due, bool pending)
    {
        const auto descriptor = descriptorOf(read(), due.certificate);
        // The pending key's label is the field before the last.
        EXPECT_EQ(descriptor.at(descriptor.size() - 2).empty(), !pending) << due.kind;
    }
};

std::string mixtureName(const ::testing::TestParamInfo<MixtureCase>& info)
{
    std::string name;
    for (const std::string& kind : std::get<Kinds>(info.param))
        name += rowName(kind, std::get<KeyType>(info.param)) + "_";
    name.pop_back();
    return name;
}

TEST_P(RenewalMixture, allPendingThenInstalledBackwards_eachUsableAtEveryStep)
{
    ASSERT_NO_FATAL_FAILURE(makeCardOfOthers());
    std::vector<Due> all = addAll();
    for (Due& due : all) {
        expectPending(due, false);
        ASSERT_NO_FATAL_FAILURE(requestFor(due));
    }
    const ReadResult pending = read();
    for (const Due& due : all) {
        EXPECT_NE(pendingOf(pending, due.kind), 0) << due.kind;
        expectPending(due, true);
    }
    for (std::size_t left = all.size(); left > 0; --left) {
        ASSERT_EQ(install(all[left - 1]), 0) << lastError().text;
        for (const Due& due : all)
            EXPECT_TRUE(isUsable(due)) << due.kind;
        for (std::size_t waiting = 0; waiting < left - 1; ++waiting)
            EXPECT_TRUE(lookAtToken(cardPin).works(all[waiting].certificate));
    }
    for (const Due& due : all)
        expectRenewed(due, "normal");
    EXPECT_EQ(lookAtToken(cardPin).objects, foreignObjects + 3 * all.size());
    expectForeignObjectsUntouched();
}

TEST_P(RenewalMixture, certificatesAllGone_pendingKeysGetTheirsByRecovery)
{
    ASSERT_NO_FATAL_FAILURE(makeCardOfOthers());
    std::vector<Due> all = addAll();
    for (Due& due : all)
        ASSERT_NO_FATAL_FAILURE(requestFor(due));
    for (const Due& due : all)
        ASSERT_NO_FATAL_FAILURE(remove(due));
    const ReadResult without = read();
    EXPECT_EQ(without.result, 0);
    EXPECT_EQ(without.autCount + without.praCount + without.cnsCount, "000");
    for (const Due& due : all)
        EXPECT_NE(pendingOf(without, due.kind), 0) << due.kind;
    for (const Due& due : all)
        ASSERT_EQ(install(due, false), 0) << lastError().text;
    for (const Due& due : all)
        expectRenewed(due, "recovery");
    EXPECT_EQ(lookAtToken(cardPin).objects, foreignObjects + 3 * all.size());
    expectForeignObjectsUntouched();
}

INSTANTIATE_TEST_SUITE_P(Sets, RenewalMixture,
                         ::testing::Combine(::testing::ValuesIn(allMixtures()),
                                            ::testing::Values(KeyType::rsa2048, KeyType::p256)),
                         mixtureName);

// Second kind, key type, whether the second request's certificate comes first.
using TwoCase = std::tuple<std::tuple<const char*, const char*>, KeyType, bool>;

std::string twoName(const ::testing::TestParamInfo<TwoCase>& info)
{
    const auto& [kinds, keyType, reversed] = info.param;
    return rowName(std::get<0>(kinds), keyType) + "_" + rowName(std::get<1>(kinds), keyType) +
           (reversed ? "_backwards" : "_inOrder");
}

class TwoDueAtOnce : public RenewedCard, public ::testing::WithParamInterface<TwoCase> {};

TEST_P(TwoDueAtOnce, requestsInterleaved_eachReplacesItsOwnInEitherOrder)
{
    const auto& [kinds, keyType, reversed] = GetParam();
    ASSERT_NO_FATAL_FAILURE(makeCardOfOthers());
    std::vector<Due> both = {addDue(std::get<0>(kinds), keyType, 0),
                             addDue(std::get<1>(kinds), keyType, 2)};
    for (Due& due : both)
        ASSERT_NO_FATAL_FAILURE(requestFor(due));
    // A request may be repeated while the other one waits.
    ASSERT_NO_FATAL_FAILURE(requestFor(both[0]));
    EXPECT_EQ(lookAtToken(cardPin).objects, foreignObjects + 6 + 4);
    for (const std::size_t at : {reversed ? 1U : 0U, reversed ? 0U : 1U}) {
        const Due& due = both[at];
        const Due& other = both[1 - at];
        const ObjectFiles before = objectFiles(folder().tokens());
        const bool isOthersKnown = lookAtToken(cardPin).holds(other.certificate);
        EXPECT_NE(save(functionFor(due.kind), other.descriptor.at(ckaIdField), due.issued), 0);
        if (isOthersKnown) {
            EXPECT_EQ(lastError().number, static_cast<int>(fault::replacesOther));
        }
        EXPECT_EQ(objectFiles(folder().tokens()), before);
        EXPECT_EQ(install(due), 0) << lastError().text;
        EXPECT_TRUE(isUsable(due));
        EXPECT_TRUE(isUsable(other));
    }
    for (const Due& due : both)
        expectRenewed(due, "normal");
    EXPECT_THAT(storeOf(read(), both[0].kind), SizeIs(2));
    expectForeignObjectsUntouched();
}

INSTANTIATE_TEST_SUITE_P(OfAKind, TwoDueAtOnce,
                         ::testing::Combine(::testing::Values(std::make_tuple("aut", "aut"),
                                                              std::make_tuple("pra", "pra"),
                                                              std::make_tuple("pra", "role"),
                                                              std::make_tuple("role", "role")),
                                            ::testing::Values(KeyType::rsa2048, KeyType::p256),
                                            ::testing::Bool()),
                         twoName);

// Four of a kind are as many as a store holds.
TEST_F(RenewedCard, fourOfAKind_allRenewedWithRequestsFirst)
{
    for (const char* const kind : {"aut", "role"}) {
        folder().clear();
        folder().prepare();
        ASSERT_NO_FATAL_FAILURE(makeCardOfOthers());
        std::vector<Due> all;
        all.reserve(4);
        for (int number = 0; number < 4; ++number)
            all.push_back(addDue(kind, KeyType::p256, number + 2));
        for (Due& due : all)
            ASSERT_NO_FATAL_FAILURE(requestFor(due));
        for (const std::size_t at : {2U, 0U, 3U, 1U})
            EXPECT_EQ(install(all[at]), 0) << lastError().text;
        for (const Due& due : all)
            expectRenewed(due, "normal");
        EXPECT_EQ(lookAtToken(cardPin).objects, foreignObjects + 12);
        expectForeignObjectsUntouched();
    }
}

}  // namespace
}  // namespace cardlibs_test
