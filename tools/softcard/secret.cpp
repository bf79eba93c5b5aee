#include "tools/softcard/secret.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace softcard {
namespace {

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

class Descriptor {
public:
    explicit Descriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~Descriptor()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

}  // namespace

Secret::Secret(std::string&& digits)
    : m_digits(digits)
{
    // A move would leave the characters of a short string behind.
    OPENSSL_cleanse(digits.data(), digits.size());
}

Secret::Secret(Secret&& other) noexcept
    : Secret(std::move(other.m_digits))
{
}

Secret::~Secret()
{
    OPENSSL_cleanse(m_digits.data(), m_digits.capacity());
}

bool Secret::isEightDigits() const
{
    return m_digits.size() == 8 && std::all_of(m_digits.begin(), m_digits.end(),
                                               [](char c) { return c >= '0' && c <= '9'; });
}

Secret drawEightDigits()
{
    std::string digits(8, '0');
    for (char& digit : digits) {
        unsigned char byte = 0;
        // 250 is the largest multiple of ten in a byte: what lies above would favour small digits.
        do {
            if (RAND_bytes(&byte, 1) != 1)
                throw std::runtime_error("no random numbers to be had");
        } while (byte >= 250);
        digit = static_cast<char>('0' + byte % 10);
    }
    return Secret(std::move(digits));
}

Secret readSecretDescriptor(int descriptor)
{
    std::array<char, 256> buffer = {};
    std::size_t filled = 0;
    while (filled < buffer.size() && std::memchr(buffer.data(), '\n', filled) == nullptr) {
        const ssize_t got = read(descriptor, buffer.data() + filled, buffer.size() - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail("cannot read the PIN");
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    const std::size_t length = std::min(strcspn(buffer.data(), "\r\n"), filled);
    Secret secret(std::string(buffer.data(), length));
    OPENSSL_cleanse(buffer.data(), buffer.size());
    return secret;
}

Secret readSecretFile(const std::filesystem::path& file)
{
    const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (descriptor.get() < 0)
        fail("cannot read the PIN from " + file.string());
    return readSecretDescriptor(descriptor.get());
}

Secret readSecretVariable(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    if (value == nullptr)
        throw std::runtime_error("the environment variable " + name + " is not set");
    return Secret(std::string(value));
}

void writeSecretFile(const std::filesystem::path& file, const Secret& secret)
{
    const Descriptor descriptor(
        open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (descriptor.get() < 0)
        fail("cannot write " + file.string());
    const auto put = [&](const char* bytes, std::size_t size) {
        if (write(descriptor.get(), bytes, size) != static_cast<ssize_t>(size))
            fail("cannot write " + file.string());
    };
    put(secret.text(), secret.size());
    put("\n", 1);
}

}  // namespace softcard
