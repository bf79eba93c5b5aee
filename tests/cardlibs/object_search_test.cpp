// Cards that give the objects found in small portions.

#include "tests/cardlibs/proxy_fixture.h"

#include <gmock/gmock.h>

namespace cardlibs_test {
namespace {

using ::testing::SizeIs;

class ObjectSearch : public ProxyFixture {
protected:
    // Names of the calls that look for objects, in their order.
    std::vector<std::string> searchCalls()
    {
        std::vector<std::string> calls;
        for (const std::string& call : proxy().calls)
            if (call.rfind("C_FindObjects", 0) == 0)
                calls.push_back(call);
        return calls;
    }
};

TEST_F(ObjectSearch, fewGivenAtOnce_everyObjectIsFound)
{
    makeCard({"aut", "pra", "cns", "aut"});
    const ReadResult whole = read();
    ASSERT_THAT(whole.aut, SizeIs(2));
    for (const CK_ULONG atOnce : {1u, 2u, 3u, 5u}) {
        SCOPED_TRACE(atOnce);
        proxy().objectsAtOnce = atOnce;
        const ReadResult result = read();
        EXPECT_EQ(result.result, 0) << lastError().text;
        EXPECT_EQ(result.aut, whole.aut);
        EXPECT_EQ(result.pra, whole.pra);
        EXPECT_EQ(result.cns, whole.cns);
        EXPECT_EQ(result.autLabel, whole.autLabel);
    }
}

TEST_F(ObjectSearch, fewGivenAtOnce_labelsBorneMeanwhileAreNotOffered)
{
    makeCard({"aut"});
    proxy().objectsAtOnce = 1;
    ASSERT_EQ(labels().aut, "AUT1");
    addCertificate("aut", 1);
    EXPECT_EQ(labels().aut, "AUT2");
}

TEST_F(ObjectSearch, fewGivenAtOnce_renewalReplacesTheCertificate)
{
    makeCard({"aut"});
    proxy().objectsAtOnce = 1;
    const auto descriptor = read().aut.at(0);
    const RequestResult made = request(Function::aut, descriptor);
    ASSERT_EQ(made.result, 0) << lastError().text;
    ASSERT_EQ(save(Function::aut, descriptor[ckaIdField], issue(made.pem)), 0) << lastError().text;
    EXPECT_EQ(workingPairs(), 1u);
    EXPECT_EQ(objectNames().size(), 3u);
}

TEST_F(ObjectSearch, nothingFound_noFurtherQuestion)
{
    makeCard({});
    const std::string name = reader();
    proxy().calls.clear();
    ASSERT_EQ(readCerts(name, cardPin).result, 0) << lastError().text;
    const std::vector<std::string> once = {"C_FindObjectsInit", "C_FindObjects",
                                           "C_FindObjectsFinal"};
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(searchCalls(), twice);
}

}  // namespace
}  // namespace cardlibs_test
