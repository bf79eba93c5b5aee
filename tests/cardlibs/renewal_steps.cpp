#include "tests/cardlibs/renewal_steps.h"

#include "cardlibs/x509/certificate.h"
#include "tools/softcard/demo_authority.h"

#include <stdexcept>

namespace cardlibs_test {

bool isCnsKind(const std::string& kind)
{
    return kind.rfind("cns", 0) == 0;
}

Function functionFor(const std::string& kind)
{
    return kind == "pra" || kind == "role" ? Function::pra : Function::aut;
}

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

RequestResult RenewalFixture::requestFor(const std::string& kind,
                                         const std::vector<std::string>& descriptor)
{
    return request(functionFor(kind), descriptor, isCnsKind(kind) ? "CNS0" : "");
}

std::vector<std::string> RenewalFixture::descriptorOf(const ReadResult& stores,
                                                      const cardlibs::Bytes& certificate)
{
    const std::string number =
        cardlibs::x509::Certificate::parse(certificate).value().serialNumber();
    for (const auto* store : {&stores.cns, &stores.pra, &stores.aut})
        for (const std::vector<std::string>& descriptor : *store)
            if (descriptor.at(serialField) == number)
                return descriptor;
    throw std::runtime_error("the certificate is in no store");
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
