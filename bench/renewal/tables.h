// What the benchmark prints.

#ifndef TARVELOQT_BENCH_RENEWAL_TABLES_H
#define TARVELOQT_BENCH_RENEWAL_TABLES_H

#include "bench/renewal/bounds.h"
#include "bench/renewal/series.h"

#include <string>
#include <vector>

namespace bench {

// Calls, logins and time of each step of the library's renewal, and of the whole.
void printOperations(const Series& library);

// One line for each contender; the first is the one that the others' times are compared with.
void printComparison(const std::vector<Series>& contenders);

// False when a bound is exceeded.
bool printBounds(const std::string& card, const std::vector<BoundedCount>& counts);

// The calls of each step, by function.
void printFunctions(const Renewal& renewal);

}  // namespace bench

#endif
