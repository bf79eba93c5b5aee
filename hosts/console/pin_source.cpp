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
    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

[[noreturn]] void cannotRead(const QString& source, int error)
{
    throw Stop(ExitCode::fileFailed,
               Text("Impossibile leggere il PIN da %1: %2.", "The PIN cannot be read from %1: %2.")
                   .arg(source, QString::fromLocal8Bit(std::strerror(error))));
}

ssize_t readSome(int descriptor, char* into, size_t size)
{
    ssize_t got = 0;
    do {
        got = ::read(descriptor, into, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

QString firstLine(int descriptor, const QString& source)
{
    WipedBuffer buffer;
    size_t length = 0;
    while (length < WipedBuffer::capacity()) {
        const ssize_t got =
            readSome(descriptor, buffer.data() + length, WipedBuffer::capacity() - length);
        if (got < 0) {
            cannotRead(source, errno);
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

}  // namespace

QString pinFromFile(const QString& path)
{
    const OpenFile file(path);
    if (!file.isOpen()) {
        cannotRead(path, errno);
    }
    return firstLine(file.descriptor(), path);
}

QString pinFromDescriptor(int descriptor)
{
    return firstLine(descriptor,
                     Text("descrittore %1", "descriptor %1").arg(QString::number(descriptor)));
}

QString pinFromEnvironment(const QString& variable)
{
    const QByteArray name = QFile::encodeName(variable);
    char* value = std::getenv(name.constData());
    if (value == nullptr) {
        throw Stop(ExitCode::pinUnusable, Text("La variabile d'ambiente %1 non è definita.",
                                               "The environment variable %1 is not set.")
                                              .arg(variable));
    }
    QString pin = QString::fromUtf8(value);
    OPENSSL_cleanse(value, std::strlen(value));
    if (::unsetenv(name.constData()) != 0) {
        wipe(pin);
        throw Stop(ExitCode::internalError, Text("Impossibile togliere la variabile d'ambiente %1.",
                                                 "The environment variable %1 cannot be removed.")
                                                .arg(variable));
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
