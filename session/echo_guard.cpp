#include "session/echo_guard.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace session {

namespace {

// The handler's end and the reader's end of the pipe in which received signals wait. A pipe rather
// than a flag: the signal may be delivered to another thread than the one that waits for input.
int receivedSignalWriter = -1;
int receivedSignalReader = -1;

void noteSignal(int number)
{
    const int savedErrno = errno;
    const auto byte = static_cast<unsigned char>(number);
    // When the pipe is full the signal is already on its way.
    static_cast<void>(!write(receivedSignalWriter, &byte, 1));
    errno = savedErrno;
}

// The next signal received, 0 when there is none.
int takeSignal()
{
    unsigned char byte = 0;
    return read(receivedSignalReader, &byte, 1) == 1 ? byte : 0;
}

bool setTerminal(int terminal, const termios& settings)
{
    int result = 0;
    do {
        // Not TCSAFLUSH: it would throw away what was typed ahead.
        result = tcsetattr(terminal, TCSADRAIN, &settings);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

}  // namespace

EchoGuard::EchoGuard(int terminal)
    : m_terminal(terminal)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
        receivedSignalReader = ends[0];
        receivedSignalWriter = ends[1];
    }
    hide();
}

EchoGuard::~EchoGuard()
{
    show();
    // What arrived since the last look.
    passOnSignals();
    if (receivedSignalReader >= 0) {
        static_cast<void>(close(receivedSignalReader));
        static_cast<void>(close(receivedSignalWriter));
        receivedSignalReader = -1;
        receivedSignalWriter = -1;
    }
}

void EchoGuard::hide()
{
    // The handlers first: a signal in between must already find the way back. Without the pipe
    // signals keep their usual effect.
    for (std::size_t i = 0; receivedSignalWriter >= 0 && i < watchedSignals.size(); ++i) {
        struct sigaction action = {};
        action.sa_handler = noteSignal;
        static_cast<void>(sigemptyset(&action.sa_mask));
        if (sigaction(watchedSignals[i], nullptr, &m_previous[i]) != 0 ||
            m_previous[i].sa_handler == SIG_IGN) {
            continue;
        }
        m_watched[i] = sigaction(watchedSignals[i], &action, nullptr) == 0;
    }
    if (tcgetattr(m_terminal, &m_shown) != 0) {
        return;
    }
    termios hidden = m_shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK);
    // The Enter key still ends the line on the screen.
    hidden.c_lflag |= ECHONL;
    m_hidden = setTerminal(m_terminal, hidden);
}

void EchoGuard::show()
{
    if (m_hidden) {
        m_hidden = !setTerminal(m_terminal, m_shown);
    }
    for (std::size_t i = 0; i < watchedSignals.size(); ++i) {
        if (m_watched[i]) {
            m_watched[i] = sigaction(watchedSignals[i], &m_previous[i], nullptr) != 0;
        }
    }
}

void EchoGuard::passOnSignals()
{
    for (int number = takeSignal(); number != 0; number = takeSignal()) {
        static_cast<void>(raise(number));
    }
}

void EchoGuard::waitForInput()
{
    std::array<pollfd, 2> sources{{{m_terminal, POLLIN, 0}, {receivedSignalReader, POLLIN, 0}}};
    while (true) {
        const int ready = poll(sources.data(), sources.size(), -1);
        if (ready < 0 && errno != EINTR) {
            return;
        }
        if (ready > 0 && sources[1].revents != 0) {
            show();
            passOnSignals();
            hide();
        } else if (ready > 0) {
            return;
        }
    }
}

}  // namespace session
