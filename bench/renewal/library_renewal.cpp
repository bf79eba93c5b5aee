#include "bench/renewal/process.h"
#include "bench/renewal/renewal.h"
#include "bench/renewal/step_names.h"
#include "bench/renewal/text_file.h"

#include <stdexcept>

namespace bench {

using Clock = std::chrono::steady_clock;

Renewal renewWithLibrary(const BenchCard& card, const CounterFile& counters)
{
    card.restore();
    const std::string folder = card.workFolder();
    Renewal renewal;
    renewal.processes = 1;
    const Tally before = counters.now();
    Tally last = before;
    std::string issued;
    std::chrono::nanoseconds waited{0};
    Process host({RENEWING_HOST, folder}, Process::ErrorOutput::ours);
    auto begin = Clock::now();
    for (std::string step = host.readLine(); !step.empty(); step = host.readLine()) {
        const auto reached = Clock::now();
        const Tally tally = counters.now() - last;
        last = counters.now();
        renewal.operations.push_back({step, tally, reached - begin - tally.keyGenerationWall});
        if (step == step::request) {
            issued = card.issue(readText(folder + "/request.pem"));
            writeText(folder + "/certificate.pem", issued);
        }
        begin = Clock::now();
        waited += begin - reached;
        host.writeLine({});
    }
    const ProcessEnd end = host.end();
    if (end.exitCode != 0) {
        throw std::runtime_error("the renewal with the library failed");
    }
    const Tally all = counters.now() - before;
    // Calls made while the process ends, if there are any.
    renewal.operations.push_back({"end", counters.now() - last, Clock::now() - begin});
    renewal.wall = end.wall - waited - all.keyGenerationWall;
    renewal.cpu = end.cpu - all.keyGenerationCpu;
    renewal.requireCounted();
    card.expectRenewed(issued);
    return renewal;
}

}  // namespace bench
