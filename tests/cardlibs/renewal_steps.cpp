#include "tests/cardlibs/renewal_steps.h"

#include "tools/softcard/demo_authority.h"

namespace cardlibs_test {

RequestResult RenewalFixture::request(Function function, const std::vector<std::string>& descriptor,
                                      const std::string& label)
{
    const LabelResult free = labels();
    EXPECT_EQ(free.result, 0);
    const std::string& proposed = function == Function::pra ? free.pra : free.aut;
    return createRequest(function, label.empty() ? proposed : label, cardPin,
                         descriptor.at(ckaIdField), descriptor.at(subjectField));
}

RequestResult RenewalFixture::requestCns(const std::vector<std::string>& descriptor)
{
    return request(Function::aut, descriptor, "CNS0");
}

int RenewalFixture::save(Function function, const std::string& ckaId,
                         const std::string& certificate)
{
    const LabelResult free = labels();
    EXPECT_EQ(free.result, 0);
    return saveCertificate(function, cardPin, ckaId,
                           function == Function::pra ? free.pra : free.aut, certificate);
}

std::string RenewalFixture::issue(const std::string& requestPem) const
{
    return issue(requestPem, {std::time(nullptr), softcard::validityFor(3 * 365).notAfter});
}

std::string RenewalFixture::issue(const std::string& requestPem,
                                  const softcard::Validity& validity) const
{
    return softcard::DemoAuthority::open(folder().authority()).issue(requestPem, validity, "");
}

}  // namespace cardlibs_test
