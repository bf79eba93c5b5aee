#include "bench/renewal/series.h"

#include <algorithm>
#include <stdexcept>

namespace bench {

namespace {

double milliseconds(std::chrono::nanoseconds time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

template <typename Time>
double medianOf(const std::vector<Renewal>& renewals, Time time)
{
    std::vector<double> times;
    times.reserve(renewals.size());
    for (const Renewal& renewal : renewals) {
        times.push_back(milliseconds(time(renewal)));
    }
    std::sort(times.begin(), times.end());
    const std::size_t middle = times.size() / 2;
    return times.size() % 2 == 1 ? times[middle] : (times[middle - 1] + times[middle]) / 2;
}

}  // namespace

void Series::add(Renewal renewal)
{
    if (!m_renewals.empty() && (renewal.all().calls != first().all().calls ||
                                renewal.operations.size() != first().operations.size())) {
        throw std::runtime_error(m_name + ": two runs made different calls");
    }
    m_renewals.push_back(std::move(renewal));
}

double Series::medianWallMs() const
{
    return medianOf(m_renewals, [](const Renewal& renewal) { return renewal.wall; });
}

double Series::medianCpuMs() const
{
    return medianOf(m_renewals, [](const Renewal& renewal) { return renewal.cpu; });
}

double Series::medianWallMs(std::size_t operation) const
{
    return medianOf(m_renewals, [operation](const Renewal& renewal) {
        return renewal.operations.at(operation).wall;
    });
}

}  // namespace bench
