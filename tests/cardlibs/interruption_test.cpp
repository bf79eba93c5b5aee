// Every PKCS#11 call of a request and of an installation made to fail in turn.

#include "cardlibs/state/card_error.h"
#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using softcard::KeyType;

struct Case {
    const char* kind;
    KeyType keyType;
    Function function;
};

void PrintTo(const Case& testCase, std::ostream* stream)
{
    *stream << testCase.kind << (testCase.keyType == KeyType::rsa2048 ? " RSA" : " EC");
}

class Interruption : public ProxyFixture, public ::testing::WithParamInterface<Case> {
protected:
    void prepare()
    {
        makeCard({GetParam().kind}, GetParam().keyType);
        const ReadResult before = read();
        const bool isCns = std::string(GetParam().kind).rfind("cns", 0) == 0;
        m_descriptor = (isCns                                  ? before.cns
                        : GetParam().function == Function::pra ? before.pra
                                                               : before.aut)
                           .at(0);
        m_label = isCns ? "CNS0" : GetParam().function == Function::pra ? "DS1" : "AUT1";
        m_reader = reader();
    }

    RequestResult requestOnce()
    {
        return createRequest(GetParam().function, m_label, cardPin, m_descriptor[ckaIdField],
                             m_descriptor[subjectField]);
    }

    int saveOnce(const std::string& issued)
    {
        return saveCertificate(GetParam().function, cardPin, m_descriptor[ckaIdField], m_label,
                               issued);
    }

    // Runs the operation once for each of its calls with that call failing; after each, the card is
    // looked at, and the operation repeated on it without a failure.
    template <typename Operation, typename Look>
    void failEachCall(Operation&& operation, Look&& look, std::size_t objectsAtTheEnd)
    {
        keepCard();
        ASSERT_EQ(findFreeLabels(m_reader, cardPin).result, 0);
        proxy().calls.clear();
        ASSERT_EQ(operation(), 0) << lastError().text;
        const std::size_t calls = proxy().calls.size();
        const std::vector<std::string> names = proxy().calls;
        ASSERT_GT(calls, 15u);
        std::size_t failuresSeen = 0;
        for (const Fault fault : {Fault::instead, Fault::afterwards, Fault::fromHereOn}) {
            for (std::size_t call = 1; call <= calls; ++call) {
                SCOPED_TRACE("call " + std::to_string(call) + " (" + names[call - 1] + "), fault " +
                             std::to_string(static_cast<int>(fault)));
                restoreCard();
                ASSERT_EQ(findFreeLabels(m_reader, cardPin).result, 0);
                proxy().calls.clear();
                proxy().failuresPlayed = 0;
                proxy().fault = fault;
                proxy().failure =
                    fault == Fault::fromHereOn ? CKR_DEVICE_REMOVED : CKR_DEVICE_ERROR;
                proxy().failingCall = call;
                const int result = operation();
                EXPECT_GT(proxy().failuresPlayed, 0u);
                failuresSeen += result != 0 ? 1 : 0;
                if (result != 0) {
                    EXPECT_EQ(lastError().result, 0);
                }
                proxy().failingCall = 0;
                look();
                proxy().calls.clear();
                ASSERT_EQ(findFreeLabels(m_reader, cardPin).result, 0)
                    << lastError().text << ::testing::PrintToString(proxy().calls);
                EXPECT_EQ(operation(), 0) << lastError().text;
                EXPECT_EQ(objectNames().size(), objectsAtTheEnd);
                if (HasFailure())
                    return;
            }
        }
        RecordProperty("calls", static_cast<int>(calls));
        RecordProperty("failures", static_cast<int>(failuresSeen));
        // Closing may fail without harm, and looking for the card is done twice.
        EXPECT_GT(failuresSeen, 2 * calls);
    }

    std::string m_reader;
    std::string m_label;
    std::vector<std::string> m_descriptor;
};

TEST_P(Interruption, requestWithACallFailing_oldPairWorksAndRequestIsRepeatable)
{
    prepare();
    failEachCall([&] { return requestOnce().result; }, [&] { EXPECT_EQ(workingPairs(), 1u); }, 5);
}

TEST_P(Interruption, installationWithACallFailing_neverNeitherAndInstallationIsRepeatable)
{
    prepare();
    ASSERT_EQ(findFreeLabels(m_reader, cardPin).result, 0);
    const RequestResult made = requestOnce();
    ASSERT_EQ(made.result, 0) << lastError().text;
    const std::string issued = issue(made.pem);
    failEachCall([&] { return saveOnce(issued); }, [&] { EXPECT_GE(workingPairs(), 1u); }, 3);
    const auto left = certificates();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_NE(left[0].certificate.serialNumber(), m_descriptor[serialField]);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Interruption,
                         ::testing::Values(Case{"aut", KeyType::p256, Function::aut},
                                           Case{"pra", KeyType::p256, Function::pra},
                                           Case{"cns", KeyType::p256, Function::aut}));

}  // namespace
}  // namespace cardlibs_test
