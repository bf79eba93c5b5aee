#include "bench/renewal/bounds.h"

#include "bench/renewal/step_names.h"

namespace bench {

namespace {

// Calls that do not depend on the card's content, and those for each key pair: private key, public
// key and certificate are read with one call each.
struct BoundRow {
    const char* step;
    std::uint64_t fixed;
    std::uint64_t perPair;
};

constexpr BoundRow boundRows[] = {
    {step::inventory, 16, 3},
    {step::request, 40, 3},
    {step::installation, 50, 3},
};
constexpr BoundRow wholeRow = {"whole renewal", 130, 9};

// PIN, inventory, free label, request, free label, saving.
constexpr std::uint64_t mostLogins = 6;

std::uint64_t boundOf(const BoundRow& row, int pairs)
{
    return row.fixed + row.perPair * static_cast<std::uint64_t>(pairs);
}

}  // namespace

Tally wholeRenewal(const Renewal& renewal)
{
    Tally sum;
    for (const Operation& operation : renewal.operations) {
        if (operation.name == step::lastLook) {
            break;
        }
        sum = sum + operation.tally;
    }
    return sum;
}

std::vector<BoundedCount> boundedCounts(const Renewal& renewal, int pairs)
{
    std::vector<BoundedCount> counts;
    for (const BoundRow& row : boundRows) {
        counts.push_back({std::string(row.step) + ", calls",
                          renewal.operation(row.step).tally.all(), boundOf(row, pairs)});
    }
    const Tally whole = wholeRenewal(renewal);
    counts.push_back(
        {std::string(wholeRow.step) + ", calls", whole.all(), boundOf(wholeRow, pairs)});
    counts.push_back({std::string(wholeRow.step) + ", logins", whole.logins(), mostLogins});
    return counts;
}

}  // namespace bench
