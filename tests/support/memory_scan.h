// Looks for a secret in the memory of the running process.

#ifndef TARVELOQT_TESTS_SUPPORT_MEMORY_SCAN_H
#define TARVELOQT_TESTS_SUPPORT_MEMORY_SCAN_H

#include <QString>

#include <cstddef>
#include <vector>

namespace support {

// Random digits, eight or more, of which the process holds no byte copy: only their difference to a
// mask.
class Secret {
public:
    explicit Secret(std::size_t digits = 8);

    // The digits as a host would hold them, two bytes per character.
    QString text() const;

    // Writes the digits and a newline into the file descriptor, from a buffer that is wiped.
    void writeLine(int descriptor) const;

    // How often the last eight digits lie side by side in writable memory, freed memory included.
    // An allocator may write over the first sixteen bytes of what is freed, so only a longer secret
    // is found there for certain.
    int copiesInMemory() const;

private:
    int copiesIn(const unsigned char* begin, const unsigned char* end) const;

    static constexpr unsigned char mask = 0x80;
    static constexpr int soughtDigits = 8;
    std::vector<unsigned char> m_masked;
};

}  // namespace support

#endif
