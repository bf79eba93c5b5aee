// Several renewals of one kind: their counts, which must agree, and the medians of their times.

#ifndef TARVELOQT_BENCH_RENEWAL_SERIES_H
#define TARVELOQT_BENCH_RENEWAL_SERIES_H

#include "bench/renewal/renewal.h"

#include <string>
#include <vector>

namespace bench {

class Series {
public:
    explicit Series(std::string name)
        : m_name(std::move(name))
    {
    }

    const std::string& name() const { return m_name; }
    // Throws std::runtime_error when the calls are not those of the renewals before it.
    void add(Renewal renewal);

    // Whose counts stand for all.
    const Renewal& first() const { return m_renewals.front(); }
    double medianWallMs() const;
    double medianCpuMs() const;
    // Of the step at this place.
    double medianWallMs(std::size_t operation) const;

private:
    std::string m_name;
    std::vector<Renewal> m_renewals;
};

}  // namespace bench

#endif
