#include "hosts/console/library_streams.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/terminal.h"

#include <QByteArray>

#include <card_v_func.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <system_error>

namespace console {

namespace {

// Descriptors below are the standard ones, which may be closed and must not be taken by chance.
constexpr int firstSpare = STDERR_FILENO + 1;

// Room behind the kept bytes, by which more than those is noticed. stdio writes pieces of this size
// at most unless a larger one is printed at once.
constexpr int overflowRoom = 4096;

[[noreturn]] void failWith(int error)
{
    throw std::system_error(error, std::generic_category());
}

Stop refusal(const Text& sentence, int error)
{
    return Stop(
        ExitCode::internalError, sentence.arg(QString::fromLocal8Bit(std::strerror(error))),
        Text("Chiudere altri programmi e riprovare.", "Close other programs and try again."));
}

OwnedDescriptor spare(int descriptor)
{
    OwnedDescriptor opened(descriptor);
    if (!opened.isOpen()) {
        failWith(errno);
    }
    if (opened.get() >= firstSpare) {
        return opened;
    }
    OwnedDescriptor moved(::fcntl(opened.get(), F_DUPFD_CLOEXEC, firstSpare));
    if (!moved.isOpen()) {
        failWith(errno);
    }
    return moved;
}

OwnedDescriptor nullDevice(int access)
{
    return spare(::open("/dev/null", access | O_CLOEXEC));
}

// A file in memory that cannot grow: what does not fit is refused to whoever prints it.
OwnedDescriptor boundedMemory(int size)
{
    OwnedDescriptor memory =
        spare(::memfd_create("library-output", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (::ftruncate(memory.get(), size) != 0 ||
        ::fcntl(memory.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0) {
        failWith(errno);
    }
    return memory;
}

bool isOpen(int descriptor)
{
    return ::fcntl(descriptor, F_GETFD) != -1;
}

// Afterwards nothing printed so far can still come out where it does not belong.
void writeOutPrinted()
{
    outLogFile.flush();
    if (!std::cout.flush()) {
        std::cout.clear();
    }
    if (std::fflush(stdout) != 0) {
        // What its stream did not take is lost, as it would be without the exchange.
        __fpurge(stdout);
        std::clearerr(stdout);
    }
}

int duplicatedOnto(int standard, int replacement)
{
    int result = 0;
    do {
        result = ::dup2(replacement, standard);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    return result < 0 ? errno : 0;
}

}  // namespace

LibraryStreams::Exchanged::Exchanged(int standard, int replacement)
    : m_standard(standard)
    , m_original(::fcntl(standard, F_DUPFD_CLOEXEC, firstSpare))
{
    if (!m_original.isOpen() && errno != EBADF) {
        failWith(errno);
    }
    if (const int error = duplicatedOnto(standard, replacement); error != 0) {
        failWith(error);
    }
}

LibraryStreams::Exchanged::~Exchanged()
{
    static_cast<void>(restore());
}

int LibraryStreams::Exchanged::restore()
{
    if (!m_isExchanged) {
        return 0;
    }
    m_isExchanged = false;
    if (!m_original.isOpen()) {
        return ::close(m_standard) == 0 ? 0 : errno;
    }
    const int error = duplicatedOnto(m_standard, m_original.get());
    m_original = OwnedDescriptor();
    return error;
}

LibraryStreams::LibraryStreams(LibraryOutput output, LibraryInput input)
{
    writeOutPrinted();
    try {
        switch (output) {
        case LibraryOutput::shown:
            break;
        case LibraryOutput::onStandardError:
            if (isOpen(STDERR_FILENO)) {
                m_output.emplace(STDOUT_FILENO, STDERR_FILENO);
                break;
            }
            [[fallthrough]];
        case LibraryOutput::dropped:
            m_output.emplace(STDOUT_FILENO, nullDevice(O_WRONLY).get());
            break;
        case LibraryOutput::kept:
            m_kept = boundedMemory(largestKept + overflowRoom);
            m_output.emplace(STDOUT_FILENO, m_kept.get());
            break;
        }
        if (input == LibraryInput::empty) {
            m_input.emplace(STDIN_FILENO, nullDevice(O_RDONLY).get());
        }
    } catch (const std::system_error& error) {
        throw refusal(Text("Impossibile separare le stampe della libreria di rinnovo: %1.",
                           "What the renewal library prints cannot be kept apart: %1."),
                      error.code().value());
    }
}

LibraryStreams::~LibraryStreams()
{
    try {
        restore();
    } catch (const Stop& stop) {
        complain(stop.detail());
    }
}

void LibraryStreams::restore()
{
    writeOutPrinted();
    int error = 0;
    if (m_input) {
        error = m_input->restore();
        // The end that was met is not that of the standard input put back.
        std::clearerr(stdin);
    }
    if (m_output) {
        const int outputError = m_output->restore();
        error = outputError != 0 ? outputError : error;
    }
    if (error != 0) {
        throw refusal(Text("Impossibile ripristinare l'ingresso e l'uscita standard: %1.",
                           "Standard input and output cannot be put back: %1."),
                      error);
    }
}

PrintedText LibraryStreams::printed() const
{
    if (!m_kept.isOpen()) {
        return {};
    }
    writeOutPrinted();
    const off_t end = ::lseek(m_kept.get(), 0, SEEK_CUR);
    QByteArray bytes(static_cast<int>(std::clamp<off_t>(end, 0, largestKept)), '\0');
    int filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::pread(m_kept.get(), bytes.data() + filled,
                                    static_cast<size_t>(bytes.size() - filled), filled);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        filled += static_cast<int>(got);
    }
    bytes.truncate(filled);
    return {QString::fromLocal8Bit(bytes), end > largestKept};
}

}  // namespace console
