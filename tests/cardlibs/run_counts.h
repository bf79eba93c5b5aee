// What the tests count while they run, for the table that scripts/test prints: one line each in the
// file that the environment variable TARVELOQT_RUN_COUNTS names, none without it.

#ifndef TARVELOQT_TESTS_CARDLIBS_RUN_COUNTS_H
#define TARVELOQT_TESTS_CARDLIBS_RUN_COUNTS_H

#include "tools/softcard/certified_key.h"

#include <cstddef>
#include <string>

namespace cardlibs_test {

const char* keyTypeName(softcard::KeyType keyType);

// way: "normal", or "recovery" when no certificate to replace was named.
void countRenewal(const std::string& kind, softcard::KeyType keyType, const std::string& way);

// Calls that were made to fail, or late, in the operation.
void countDisturbedCalls(const std::string& operation, const std::string& disturbance,
                         std::size_t calls);

}  // namespace cardlibs_test

#endif
