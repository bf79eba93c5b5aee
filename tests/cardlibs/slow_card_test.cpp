// Cards that take their time.

#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/run_counts.h"
#include "tests/cardlibs/token_look.h"

#include <chrono>
#include <thread>

namespace cardlibs_test {
namespace {

using namespace std::chrono_literals;

class SlowCard : public ProxyFixture {
protected:
    void prepare()
    {
        makeCard({"aut"});
        m_reader = reader();
        m_descriptor = read().aut.at(0);
    }

    int request()
    {
        const LabelResult labels = findFreeLabels(m_reader, cardPin);
        if (labels.result != 0)
            return labels.result;
        const RequestResult made =
            createRequest(Function::aut, labels.aut, cardPin, m_descriptor[ckaIdField],
                          m_descriptor[subjectField]);
        m_request = made.pem;
        return made.result;
    }

    int install(const std::string& issued)
    {
        const LabelResult labels = findFreeLabels(m_reader, cardPin);
        if (labels.result != 0)
            return labels.result;
        return saveCertificate(Function::aut, cardPin, m_descriptor[ckaIdField], labels.aut,
                               issued);
    }

    // Holds up the call with this number, counted from 1.
    void delayCall(std::size_t number)
    {
        proxy().calls.clear();
        m_callsDelayed = 0;
        proxy().before = [=](const std::string&) {
            if (proxy().calls.size() + 1 != number)
                return;
            std::this_thread::sleep_for(10ms);
            ++m_callsDelayed;
        };
    }

    // Runs the operation once for each of its calls with that call late.
    template <typename Operation>
    void delayEachCall(const char* name, Operation&& operation)
    {
        keepCard();
        ASSERT_EQ(read().result, 0);
        proxy().calls.clear();
        ASSERT_EQ(operation(), 0) << lastError().text;
        const std::vector<std::string> calls = proxy().calls;
        ASSERT_GT(calls.size(), 20u);
        for (std::size_t call = 1; call <= calls.size(); ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + " (" + calls[call - 1] + ")");
            restoreCard();
            ASSERT_EQ(read().result, 0);
            delayCall(call);
            EXPECT_EQ(operation(), 0) << lastError().text;
            EXPECT_EQ(m_callsDelayed, 1u);
            // Nothing was given up and tried again.
            EXPECT_EQ(proxy().calls, calls);
            proxy().before = nullptr;
            if (HasFailure())
                return;
        }
        countDisturbedCalls(name, "late", calls.size());
    }

    std::string m_reader;
    std::vector<std::string> m_descriptor;
    std::string m_request;
    std::size_t m_callsDelayed = 0;
};

TEST_F(SlowCard, eachCallLate_requestAndInstallationAsEver)
{
    prepare();
    ASSERT_NO_FATAL_FAILURE(delayEachCall("request", [&] { return request(); }));
    const std::string issued = issue(m_request);
    ASSERT_NO_FATAL_FAILURE(delayEachCall("installation", [&] { return install(issued); }));
    const TokenLook token = lookAtToken(cardPin);
    EXPECT_TRUE(token.works(certificateBytes(issued)));
    EXPECT_EQ(token.objects, 3u);
}

TEST_F(SlowCard, theLongestCallsTakeTheirTime_waitedFor)
{
    prepare();
    proxy().before = [](const std::string& name) {
        if (name == "C_GenerateKeyPair")
            std::this_thread::sleep_for(3s);
        else if (name == "C_Sign" || name == "C_CreateObject")
            std::this_thread::sleep_for(300ms);
    };
    ASSERT_EQ(request(), 0) << lastError().text;
    const std::string issued = issue(m_request);
    EXPECT_EQ(install(issued), 0) << lastError().text;
    for (const char* const slow : {"C_GenerateKeyPair", "C_CreateObject"})
        EXPECT_EQ(proxy().count(slow), 1u) << slow;
    const TokenLook token = lookAtToken(cardPin);
    EXPECT_TRUE(token.works(certificateBytes(issued)));
    EXPECT_EQ(token.objects, 3u);
}

}  // namespace
}  // namespace cardlibs_test
