#include "memory_scan.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <strings.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace support {

namespace {

struct Region {
    std::uintptr_t begin;
    std::uintptr_t end;
};

// Larger mappings are a sanitizer's shadow memory.
constexpr std::uintptr_t largestRegion = std::uintptr_t{64} * 1024 * 1024;

std::vector<Region> writableRegions()
{
    std::vector<Region> regions;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        Region region{};
        std::string permissions;
        char dash = 0;
        std::istringstream(line) >> std::hex >> region.begin >> dash >> region.end >> permissions;
        if (permissions.rfind("rw", 0) == 0 && region.end - region.begin <= largestRegion)
            regions.push_back(region);
    }
    return regions;
}

}  // namespace

Secret::Secret(std::size_t digits)
    : m_masked(digits)
{
    std::random_device random;
    std::uniform_int_distribution<int> digit('0', '9');
    for (unsigned char& byte : m_masked)
        byte = static_cast<unsigned char>(digit(random) ^ mask);
}

QString Secret::text() const
{
    QString text;
    for (const unsigned char byte : m_masked)
        text += QChar(static_cast<ushort>(byte ^ mask));
    return text;
}

void Secret::writeLine(int descriptor) const
{
    std::vector<char> line(m_masked.size() + 1);
    for (std::size_t i = 0; i < m_masked.size(); ++i)
        line[i] = static_cast<char>(m_masked[i] ^ mask);
    line.back() = '\n';
    EXPECT_EQ(write(descriptor, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    explicit_bzero(line.data(), line.size());
}

int Secret::copiesIn(const unsigned char* begin, const unsigned char* end) const
{
    const auto sought = m_masked.end() - soughtDigits;
    int copies = 0;
    while (end - begin >= soughtDigits) {
        const void* found = std::memchr(begin, *sought ^ mask,
                                        static_cast<std::size_t>(end - begin - soughtDigits + 1));
        if (found == nullptr)
            break;
        begin = static_cast<const unsigned char*>(found);
        const bool isSame =
            std::equal(sought, m_masked.end(), begin, [](unsigned char masked, unsigned char byte) {
                return (masked ^ mask) == byte;
            });
        copies += isSame ? 1 : 0;
        ++begin;
    }
    return copies;
}

int Secret::copiesInMemory() const
{
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    EXPECT_NE(memory, -1);
    constexpr std::size_t windowSize = std::size_t{1024} * 1024;
    // Shared memory is not among the regions read, so the window never finds itself.
    void* mapped =
        mmap(nullptr, windowSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* window = static_cast<unsigned char*>(mapped);
    const auto windowBegin = reinterpret_cast<std::uintptr_t>(mapped);

    int copies = 0;
    for (const Region& region : writableRegions()) {
        const bool holdsWindow = region.begin <= windowBegin && windowBegin < region.end;
        const std::size_t step = windowSize - soughtDigits + 1;
        for (std::uintptr_t at = region.begin; at < region.end && !holdsWindow; at += step) {
            const std::size_t wanted = std::min<std::size_t>(windowSize, region.end - at);
            const ssize_t size = pread(memory, window, wanted, static_cast<off_t>(at));
            if (size > 0)
                copies += copiesIn(window, window + size);
        }
    }
    munmap(mapped, windowSize);
    close(memory);
    return copies;
}

}  // namespace support
