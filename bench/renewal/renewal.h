// One renewal of the certificate on a bench card, by this project's library or by other people's
// programs, and what it cost.

#ifndef TARVELOQT_BENCH_RENEWAL_RENEWAL_H
#define TARVELOQT_BENCH_RENEWAL_RENEWAL_H

#include "bench/renewal/bench_card.h"
#include "bench/renewal/call_counters.h"

#include <chrono>
#include <string>
#include <vector>

namespace bench {

struct Operation {
    // Of step_names.h, or the program that was run.
    std::string name;
    Tally tally;
    // Without key generation.
    std::chrono::nanoseconds wall{0};
};

struct Renewal {
    std::vector<Operation> operations;
    int processes = 0;
    // Of all processes, from start to end, without key generation; the authority's work is in none.
    std::chrono::nanoseconds wall{0};
    std::chrono::nanoseconds cpu{0};

    Tally all() const;
    // Of the step with that name. Throws std::runtime_error when there is none.
    const Operation& operation(const std::string& name) const;
    // Throws std::runtime_error unless the calls that no renewal does without were counted: too few
    // calls would look like a success.
    void requireCounted() const;
};

// Each restores the card, renews, looks at what is then on the card as its users would, and checks
// from outside that the certificate was renewed. Throws std::exception when it was not.
Renewal renewWithLibrary(const BenchCard& card, const CounterFile& counters);
Renewal renewWithOpenScAndOpenSsl(const BenchCard& card, const CounterFile& counters);
Renewal renewWithGnuTls(const BenchCard& card, const CounterFile& counters);

}  // namespace bench

#endif
