#include "session/console.h"

#include "session/echo_guard.h"
#include "session/secret_bytes.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>

namespace session::console {

namespace {

// What the C library has read ahead on behalf of the host.
bool hasReadAhead()
{
#ifdef __GLIBC__
    return stdin->_IO_read_ptr < stdin->_IO_read_end;
#else
    return false;
#endif
}

// One byte at a time: what follows the line belongs to somebody else.
std::optional<char> nextByte(EchoGuard* guard)
{
    if (hasReadAhead()) {
        return static_cast<char>(std::getc(stdin));
    }
    while (true) {
        if (guard != nullptr) {
            guard->waitForInput();
        }
        char byte = 0;
        const ssize_t count = read(STDIN_FILENO, &byte, 1);
        if (count == 1) {
            return byte;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            // The host reads without waiting; a question waits.
            pollfd input{STDIN_FILENO, POLLIN, 0};
            static_cast<void>(poll(&input, 1, -1));
        } else if (count == 0 || errno != EINTR) {
            return std::nullopt;
        }
    }
}

void write(const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    // A closed standard output must not stop a renewal: the answer may still arrive.
    static_cast<void>(
        std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout));
    static_cast<void>(std::fflush(stdout));
}

}  // namespace

QString ask(const QString& question, Echo echo)
{
    // Before the question is shown, so that an answer given at once stays hidden too.
    std::optional<EchoGuard> guard;
    if (echo == Echo::hidden && isatty(STDIN_FILENO) == 1) {
        guard.emplace(STDIN_FILENO);
    }
    write(question);

    SecretBytes line;
    EchoGuard* const activeGuard = guard ? &*guard : nullptr;
    for (auto byte = nextByte(activeGuard); byte && *byte != '\n'; byte = nextByte(activeGuard)) {
        line.push_back(*byte);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return QString::fromLatin1(line.data(), static_cast<int>(line.size()));
}

}  // namespace session::console
