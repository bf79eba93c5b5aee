// Digits that must not outlive their use.

#ifndef TARVELOQT_TOOLS_SOFTCARD_SECRET_H
#define TARVELOQT_TOOLS_SOFTCARD_SECRET_H

#include <filesystem>
#include <string>

namespace softcard {

// A PIN in memory, overwritten before it is released. Never copied.
class Secret {
public:
    explicit Secret(std::string&& digits);
    ~Secret();
    Secret(Secret&& other) noexcept;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    Secret& operator=(Secret&&) = delete;

    // NUL-terminated.
    const char* text() const { return m_digits.c_str(); }
    std::size_t size() const { return m_digits.size(); }
    bool isEightDigits() const;

private:
    std::string m_digits;
};

Secret drawEightDigits();

// The first line of the file, of the environment variable, or of the open file descriptor. Throw
// std::runtime_error when there is nothing to read.
Secret readSecretFile(const std::filesystem::path& file);
Secret readSecretVariable(const std::string& name);
Secret readSecretDescriptor(int descriptor);

// A file that only its owner can read.
void writeSecretFile(const std::filesystem::path& file, const Secret& secret);

}  // namespace softcard

#endif
