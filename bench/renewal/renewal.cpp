#include "bench/renewal/renewal.h"

#include <numeric>
#include <stdexcept>

namespace bench {

Tally Renewal::all() const
{
    return std::accumulate(
        operations.begin(), operations.end(), Tally(),
        [](const Tally& sum, const Operation& operation) { return sum + operation.tally; });
}

const Operation& Renewal::operation(const std::string& name) const
{
    for (const Operation& candidate : operations) {
        if (candidate.name == name) {
            return candidate;
        }
    }
    throw std::runtime_error("no step is called " + name);
}

void Renewal::requireCounted() const
{
    const Tally tally = all();
    if (tally.of(CardFunction::C_GenerateKeyPair) == 0 ||
        tally.of(CardFunction::C_CreateObject) == 0 ||
        tally.of(CardFunction::C_DestroyObject) == 0 || tally.logins() == 0) {
        throw std::runtime_error("calls to the card passed the counting module by");
    }
}

}  // namespace bench
