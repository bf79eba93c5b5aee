#include "bench/renewal/tables.h"

#include "bench/renewal/step_names.h"

#include <cstdio>

namespace bench {

namespace {

unsigned long long printable(std::uint64_t count)
{
    return count;
}

void printOperation(const char* name, const Tally& tally, double wallMs)
{
    std::printf("  %-26s %6llu %7llu %17llu %10.1f\n", name, printable(tally.all()),
                printable(tally.logins()), printable(tally.contextLogins()), wallMs);
}

}  // namespace

void printOperations(const Series& library)
{
    std::printf("  %-26s %6s %7s %17s %10s\n", "operation", "calls", "logins", "context-specific",
                "wall ms");
    const std::vector<Operation>& operations = library.first().operations;
    double whole = 0;
    bool isRenewal = true;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const double wall = library.medianWallMs(i);
        if (operations[i].name == step::lastLook) {
            printOperation("whole renewal", wholeRenewal(library.first()), whole);
            isRenewal = false;
        }
        whole += isRenewal ? wall : 0;
        printOperation(operations[i].name.c_str(), operations[i].tally, wall);
    }
    std::printf("\n");
}

void printComparison(const std::vector<Series>& contenders)
{
    std::printf("  %-26s %6s %7s %17s %10s %8s %8s %10s\n", "renewal and a last look", "calls",
                "logins", "context-specific", "processes", "wall ms", "CPU ms", "time ratio");
    const double ours = contenders.front().medianWallMs();
    for (const Series& contender : contenders) {
        const Renewal& renewal = contender.first();
        const Tally tally = renewal.all();
        std::printf("  %-26s %6llu %7llu %17llu %10d %8.1f %8.1f %10.2f\n",
                    contender.name().c_str(), printable(tally.all()), printable(tally.logins()),
                    printable(tally.contextLogins()), renewal.processes, contender.medianWallMs(),
                    contender.medianCpuMs(), ours / contender.medianWallMs());
    }
    std::printf("\n");
}

bool printBounds(const std::string& card, const std::vector<BoundedCount>& counts)
{
    bool isKept = true;
    std::printf("  %s\n", card.c_str());
    for (const BoundedCount& count : counts) {
        isKept = isKept && !count.isExceeded();
        std::printf("    %-26s %6llu  at most %4llu  %s\n", count.what.c_str(),
                    printable(count.measured), printable(count.bound),
                    count.isExceeded() ? "EXCEEDED" : "kept");
    }
    return isKept;
}

void printFunctions(const Renewal& renewal)
{
    for (const Operation& operation : renewal.operations) {
        std::printf("    %s: %llu\n", operation.name.c_str(), printable(operation.tally.all()));
        for (std::size_t i = 0; i < cardFunctionCount; ++i) {
            const auto function = static_cast<CardFunction>(i);
            if (operation.tally.of(function) != 0) {
                std::printf("      %6llu %s\n", printable(operation.tally.of(function)),
                            nameOf(function));
            }
        }
    }
}

}  // namespace bench
