// The three eligibility checks seen as one family: what a test needs to know of each kind.

#ifndef TARVELOQT_TESTS_SUPPORT_ELIGIBILITY_FIXTURE_H
#define TARVELOQT_TESTS_SUPPORT_ELIGIBILITY_FIXTURE_H

#include "descriptor.h"
#include "library_fixture.h"

#include <functional>
#include <string>
#include <vector>

namespace support {

struct Kind {
    std::string name;  // as in row keys: "AUT", "PRA", "CNS"
    std::function<bool(RenewContext*, int flag, int count, int* result)> check;
    char** store;
    std::size_t capacity;  // certificates that the store can hold
    std::string (*text)(const Descriptor&);
    PlainRecord skippedLabels;    // of a record that is not to be renewed
    PlainRecord renewableLabels;  // of one that is, with the usual descriptor
    std::string acceptedAuthorities;
    std::string notRenewableLine;
    std::string notYetDueLine;
    std::string expiredLine;
    std::string renewableLine;  // before the IUT
};

const Kind& aut();
const Kind& pra();
const Kind& cns();
std::vector<Kind> allKinds();

class EligibilityTest : public LibraryTest {
protected:
    void SetUp() override;

    // A descriptor of the kind that is renewable: 30 days from its end.
    static Descriptor renewable(const Kind& kind);

    // Puts the descriptors into elements 1, 2, ... of the kind's store and runs the check on them.
    void checkAll(const Kind& kind, const std::vector<std::string>& texts, int flag = 0);
    void check(const Kind& kind, const Descriptor& descriptor);

    // Runs the check on what the store holds, and looks at what every check promises.
    void run(const Kind& kind, int flag, int count);

    // The log block of the certificate with this index, counted from 0.
    static std::string block(const Kind& kind, int index, const Descriptor& descriptor,
                             const std::string& fiscalCodeShown);

    static std::string rowKey(const Kind& kind, int number);
    PlainRecord record(const Kind& kind, int number);

    // The record of a certificate of the kind that is to be renewed, or is skipped for this reason.
    static PlainRecord renewableRecord(const Kind& kind, const Descriptor& descriptor,
                                       const std::string& fiscalCode);
    static PlainRecord skippedRecord(const Kind& kind, const Descriptor& descriptor,
                                     const std::string& fiscalCode, const std::string& reason);

    // What was logged since the last call.
    std::string newLog();

private:
    std::vector<std::vector<char>> m_buffers;
    std::size_t m_logSeen = 0;
};

// The holder's code in the subject of renewable().
extern const std::string holder;

}  // namespace support

#endif
