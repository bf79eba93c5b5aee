#include "hosts/console/pin_source.h"

#include "hosts/console/exit_code.h"

#include <QFile>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace console {

namespace {

// Longer than any PIN, so that one of nine characters is seen to be too long.
constexpr size_t longestLine = 64;

class WipedBuffer {
public:
    WipedBuffer() = default;
    ~WipedBuffer() { OPENSSL_cleanse(m_bytes.data(), m_bytes.size()); }
    WipedBuffer(const WipedBuffer&) = delete;
    WipedBuffer& operator=(const WipedBuffer&) = delete;
    WipedBuffer(WipedBuffer&&) = delete;
    WipedBuffer& operator=(WipedBuffer&&) = delete;

    char* data() { return m_bytes.data(); }
    static constexpr size_t capacity() { return longestLine; }

private:
    std::array<char, longestLine> m_bytes{};
};

class OpenFile {
public:
    explicit OpenFile(const QString& path)
        : m_descriptor(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC))
    {
    }
    ~OpenFile()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    OpenFile(OpenFile&&) = delete;
    OpenFile& operator=(OpenFile&&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }
    ssize_t read(char* into, size_t size) const
    {
        ssize_t got = 0;
        do {
            got = ::read(m_descriptor, into, size);
        } while (got < 0 && errno == EINTR);
        return got;
    }

private:
    int m_descriptor;
};

[[noreturn]] void cannotRead(const QString& path, int error)
{
    throw Stop(ExitCode::fileFailed, QStringLiteral("The PIN file %1 cannot be read: %2.")
                                         .arg(path, QString::fromLocal8Bit(std::strerror(error))));
}

}  // namespace

QString pinFromFile(const QString& path)
{
    const OpenFile file(path);
    if (!file.isOpen()) {
        cannotRead(path, errno);
    }
    WipedBuffer buffer;
    size_t length = 0;
    while (length < WipedBuffer::capacity()) {
        const ssize_t got = file.read(buffer.data() + length, WipedBuffer::capacity() - length);
        if (got < 0) {
            cannotRead(path, errno);
        }
        if (got == 0) {
            break;
        }
        length += static_cast<size_t>(got);
    }
    const char* begin = buffer.data();
    const char* end = std::find(begin, begin + length, '\n');
    if (end != begin && *(end - 1) == '\r') {
        --end;
    }
    return QString::fromUtf8(begin, static_cast<int>(end - begin));
}

QString pinFromEnvironment(const QString& variable)
{
    const QByteArray name = QFile::encodeName(variable);
    char* value = std::getenv(name.constData());
    if (value == nullptr) {
        throw Stop(ExitCode::pinUnusable,
                   QStringLiteral("The environment variable %1 is not set.").arg(variable));
    }
    QString pin = QString::fromUtf8(value);
    OPENSSL_cleanse(value, std::strlen(value));
    if (::unsetenv(name.constData()) != 0) {
        wipe(pin);
        throw Stop(ExitCode::internalError,
                   QStringLiteral("The environment variable %1 cannot be removed.").arg(variable));
    }
    return pin;
}

void wipe(QString& text)
{
    // data() would detach and leave the shared characters behind.
    OPENSSL_cleanse(
        const_cast<QChar*>(text.constData()),  // NOLINT(cppcoreguidelines-pro-type-const-cast)
        static_cast<size_t>(text.size()) * sizeof(QChar));
}

}  // namespace console
