// A card being verified: the conversation up to its identity, and the log of its beginning.

#ifndef TARVELOQT_TESTS_SUPPORT_VERIFICATION_FIXTURE_H
#define TARVELOQT_TESTS_SUPPORT_VERIFICATION_FIXTURE_H

#include "library_fixture.h"

#include <string>
#include <vector>

namespace support {

// The log of an attempt before its outcome, and with a module found.
extern const std::string attempt;
extern const std::string attemptOk;

// The steps of an accepted card, up to the identity.
std::vector<Step> openedCard(int cns = 0, int ferrolux = 0);

std::vector<Step> joined(std::vector<Step> first, const std::vector<Step>& second);

// A session with reader "Lettore". At the end the context must be what it was at the beginning, and
// ErrorMessage empty.
class VerificationTest : public LibraryTest {
protected:
    void SetUp() override;
    void TearDown() override;

    static std::string moduleCall(const std::string& reader = "Lettore");
    static std::string initializeCall(const std::string& reader = "Lettore");

    // What the context holds now is what it must hold at the end.
    void expectContextChangedByTest() { m_before = plain(context); }

private:
    PlainContext m_before;
};

}  // namespace support

#endif
