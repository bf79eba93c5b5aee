// How many PKCS#11 calls and logins a renewal may take, with so many key pairs on the card.

#ifndef TARVELOQT_BENCH_RENEWAL_BOUNDS_H
#define TARVELOQT_BENCH_RENEWAL_BOUNDS_H

#include "bench/renewal/renewal.h"

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct BoundedCount {
    std::string what;
    std::uint64_t measured = 0;
    std::uint64_t bound = 0;

    bool isExceeded() const { return measured > bound; }
};

// The renewal itself, from the reader list to the installed certificate: all steps but the look at
// the card afterwards.
Tally wholeRenewal(const Renewal& renewal);

// renewal: by the library, on a card that had so many key pairs before it.
std::vector<BoundedCount> boundedCounts(const Renewal& renewal, int pairs);

}  // namespace bench

#endif
