// A renewal on a software card step by step, as the renewal library makes it.

#ifndef TARVELOQT_TESTS_CARDLIBS_RENEWAL_STEPS_H
#define TARVELOQT_TESTS_CARDLIBS_RENEWAL_STEPS_H

#include "tests/cardlibs/card_calls.h"
#include "tests/cardlibs/card_fixture.h"

#include <string>
#include <vector>

namespace cardlibs_test {

// Fields of a descriptor that renewals use.
inline constexpr std::size_t subjectField = 0;
inline constexpr std::size_t serialField = 4;
inline constexpr std::size_t notAfterField = 6;
inline constexpr std::size_t ckaIdField = 7;

// Of a kind that softcards have.
bool isCnsKind(const std::string& kind);
Function functionFor(const std::string& kind);

class RenewalFixture : public CardFixture {
protected:
    ReadResult read() { return readCerts(reader(), cardPin); }
    LabelResult labels() { return findFreeLabels(reader(), cardPin); }

    // With the free-label call before it, as always. descriptor: of the certificate to renew.
    RequestResult request(Function function, const std::vector<std::string>& descriptor,
                          const std::string& label = {});
    // Same, for a certificate in the CNS position.
    RequestResult requestCns(const std::vector<std::string>& descriptor);
    // Same, by the certificate's kind.
    RequestResult requestFor(const std::string& kind, const std::vector<std::string>& descriptor);
    // The one among all stores that has the certificate's serial number.
    static std::vector<std::string> descriptorOf(const ReadResult& stores,
                                                 const cardlibs::Bytes& certificate);
    int save(Function function, const std::string& ckaId, const std::string& certificate);

    // PEM of the demonstration authority's answer.
    std::string issue(const std::string& requestPem) const;
    std::string issue(const std::string& requestPem, const softcard::Validity& validity) const;
};

}  // namespace cardlibs_test

#endif
