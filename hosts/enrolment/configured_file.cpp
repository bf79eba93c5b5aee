#include "hosts/enrolment/configured_file.h"

#include "hosts/enrolment/enrolment_error.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QFile>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

constexpr qint64 largestFile = 1048576;
constexpr std::size_t largestSecret = 65536;
constexpr mode_t ofOthers = S_IRWXG | S_IRWXO;

[[noreturn]] void cannotRead(const QString& path, const QString& why, const QString& cure = {})
{
    throw EnrolmentError(
        Cause::misconfigured,
        Text("Impossibile leggere %1: %2.", "%1 cannot be read: %2.").arg(printable(path), why),
        cure);
}

QString systemReason()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

class Descriptor {
public:
    explicit Descriptor(int number)
        : m_number(number)
    {
    }
    ~Descriptor()
    {
        if (m_number >= 0) {
            ::close(m_number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    int get() const { return m_number; }

private:
    int m_number;
};

void requireOwnersAlone(int descriptor, const QString& path)
{
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        cannotRead(path, systemReason());
    }
    if (!S_ISREG(status.st_mode)) {
        cannotRead(path, Text("non è un file ordinario", "it is no ordinary file"));
    }
    if (status.st_uid != ::geteuid()) {
        cannotRead(path, Text("appartiene a un altro utente", "it belongs to another user"),
                   Text("Un segreto sta in un file dell'utente che lo usa.",
                        "A secret lies in a file of the user who uses it."));
    }
    if ((status.st_mode & ofOthers) != 0) {
        cannotRead(path,
                   Text("altri utenti hanno accesso al segreto che contiene",
                        "other users have access to the secret in it"),
                   Text("Togliere i permessi (chmod 600 %1) e, se altri possono averlo letto, "
                        "cambiare il segreto.",
                        "Take the permissions away (chmod 600 %1) and, if others may have read it, "
                        "change the secret.")
                       .arg(printable(path)));
    }
}

}  // namespace

Secret::Secret(std::vector<char>&& bytes)
    : m_bytes(std::move(bytes))
{
    bytes.clear();
    if (m_bytes.size() + 1 > m_bytes.capacity()) {
        // Growing in place would leave the old memory behind as it is.
        std::vector<char> larger;
        larger.reserve(m_bytes.size() + 1);
        larger.assign(m_bytes.begin(), m_bytes.end());
        wipe();
        m_bytes = std::move(larger);
    }
    m_bytes.push_back('\0');
}

Secret::Secret(Secret&& other) noexcept
    : m_bytes(std::exchange(other.m_bytes, {}))
{
}

Secret& Secret::operator=(Secret&& other) noexcept
{
    if (this != &other) {
        wipe();
        m_bytes = std::exchange(other.m_bytes, {});
    }
    return *this;
}

Secret::~Secret()
{
    wipe();
}

const char* Secret::data() const
{
    return m_bytes.empty() ? "" : m_bytes.data();
}

std::size_t Secret::size() const
{
    return m_bytes.empty() ? 0 : m_bytes.size() - 1;
}

void Secret::wipe()
{
    OPENSSL_cleanse(m_bytes.data(), m_bytes.capacity());
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        cannotRead(path, file.errorString());
    }
    QByteArray bytes = file.read(largestFile + 1);
    if (file.error() != QFileDevice::NoError) {
        cannotRead(path, file.errorString());
    }
    if (bytes.size() > largestFile) {
        cannotRead(path, Text("supera 1 MiB", "it is larger than 1 MiB"));
    }
    return bytes;
}

Secret secretIn(const QString& path)
{
    // O_NONBLOCK: a named pipe must not make the program wait.
    const Descriptor file(::open(QFile::encodeName(path).constData(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) {
        cannotRead(path, errno == ELOOP ? Text("è un collegamento", "it is a link").string()
                                        : systemReason());
    }
    requireOwnersAlone(file.get(), path);
    std::vector<char> bytes(largestSecret + 1);
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t got = ::read(file.get(), bytes.data() + size, bytes.size() - size);
        if (got < 0 && errno != EINTR) {
            const QString reason = systemReason();
            OPENSSL_cleanse(bytes.data(), bytes.size());
            cannotRead(path, reason);
        }
        if (got == 0) {
            break;
        }
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    const bool isTooLarge = size > largestSecret;
    bytes.resize(size);
    Secret secret(std::move(bytes));
    if (isTooLarge) {
        cannotRead(path, Text("supera 64 KiB", "it is larger than 64 KiB"));
    }
    if (secret.isEmpty()) {
        cannotRead(path, Text("è vuoto", "it is empty"));
    }
    return secret;
}

Secret passwordIn(const QString& path)
{
    const Secret whole = secretIn(path);
    std::size_t size = whole.size();
    while (size > 0 && (whole.data()[size - 1] == '\n' || whole.data()[size - 1] == '\r')) {
        --size;
    }
    if (size == 0) {
        cannotRead(path, Text("è vuoto", "it is empty"));
    }
    return Secret(std::vector<char>(whole.data(), whole.data() + size));
}

}  // namespace enrolment
