// Looks for a secret in the memory of the running process.

#ifndef TARVELOQT_TESTS_SUPPORT_MEMORY_SCAN_H
#define TARVELOQT_TESTS_SUPPORT_MEMORY_SCAN_H

#include <QString>

#include <array>

namespace support {

// Eight random digits, of which the process holds no byte copy: only their difference to a mask.
class Secret {
public:
    Secret();

    // The digits as a host would hold them, two bytes per character.
    QString text() const;

    // Writes the digits and a newline into the file descriptor, from a buffer that is wiped.
    void writeLine(int descriptor) const;

    // How often the eight bytes lie side by side in writable memory, freed memory included.
    int copiesInMemory() const;

private:
    int copiesIn(const unsigned char* begin, const unsigned char* end) const;

    static constexpr unsigned char mask = 0x80;
    std::array<unsigned char, 8> m_masked{};
};

}  // namespace support

#endif
