#include "bench/renewal/call_counters.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <numeric>
#include <stdexcept>

namespace bench {

const char* nameOf(CardFunction function)
{
    static constexpr const char* names[] = {
#define BENCH_NAME(name) #name,
        BENCH_CARD_FUNCTIONS(BENCH_NAME)
#undef BENCH_NAME
            "C_Login (context-specific)"};
    static_assert(sizeof names / sizeof *names == cardFunctionCount, "a name for each function");
    return names[static_cast<std::size_t>(function)];
}

SharedCounters* mapCounters(const char* file)
{
    const int descriptor = open(file, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return nullptr;
    }
    void* mapped =
        mmap(nullptr, sizeof(SharedCounters), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    return mapped == MAP_FAILED ? nullptr : static_cast<SharedCounters*>(mapped);
}

std::uint64_t Tally::all() const
{
    return std::accumulate(calls.begin(), calls.end(), std::uint64_t{0});
}

Tally operator-(Tally later, const Tally& earlier)
{
    for (std::size_t i = 0; i < cardFunctionCount; ++i) {
        later.calls[i] -= earlier.calls[i];
    }
    later.keyGenerationWall -= earlier.keyGenerationWall;
    later.keyGenerationCpu -= earlier.keyGenerationCpu;
    return later;
}

Tally operator+(Tally one, const Tally& other)
{
    for (std::size_t i = 0; i < cardFunctionCount; ++i) {
        one.calls[i] += other.calls[i];
    }
    one.keyGenerationWall += other.keyGenerationWall;
    one.keyGenerationCpu += other.keyGenerationCpu;
    return one;
}

CounterFile::CounterFile(const std::filesystem::path& file)
{
    const int descriptor =
        open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    const bool isMade = descriptor >= 0 && ftruncate(descriptor, sizeof(SharedCounters)) == 0;
    if (descriptor >= 0) {
        close(descriptor);
    }
    m_counters = isMade ? mapCounters(file.c_str()) : nullptr;
    if (m_counters == nullptr || setenv(countersVariable, file.c_str(), 1) != 0) {
        throw std::runtime_error("cannot make the counters in " + file.string());
    }
}

Tally CounterFile::now() const
{
    Tally tally;
    for (std::size_t i = 0; i < cardFunctionCount; ++i) {
        tally.calls[i] = m_counters->calls[i].load();
    }
    tally.keyGenerationWall = std::chrono::nanoseconds(m_counters->keyGenerationWallNs.load());
    tally.keyGenerationCpu = std::chrono::nanoseconds(m_counters->keyGenerationCpuNs.load());
    return tally;
}

}  // namespace bench
