#include "session/echo_guard.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace session {

namespace {

// The handler's end and the reader's end of the pipe in which received signals wait. A pipe rather
// than a flag: the signal may be delivered to another thread than the one that waits for input. It
// is made once and stays, because a handler in another thread may outlast the guard.
std::atomic<int> receivedSignalWriter{-1};
static_assert(std::atomic<int>::is_always_lock_free, "the handler reads it");
int receivedSignalReader = -1;

void openSignalPipe()
{
    std::array<int, 2> ends{};
    if (receivedSignalReader < 0 && pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
        receivedSignalReader = ends[0];
        receivedSignalWriter = ends[1];
    }
}

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

// In the background the terminal is somebody else's: changing it would stop the process, and
// signals that are to end it would have to wait for the foreground. A terminal that does not
// control this process has no background.
bool isInBackground(int terminal)
{
    const pid_t foreground = tcgetpgrp(terminal);
    return foreground >= 0 && foreground != getpgrp();
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
    openSignalPipe();
    hide();
}

EchoGuard::~EchoGuard()
{
    show();
    // What arrived since the last look.
    passOnSignals();
}

void EchoGuard::hide()
{
    // The handlers first: a signal in between must already find the way back. Without the pipe
    // signals keep their usual effect.
    for (std::size_t i = 0; receivedSignalReader >= 0 && i < watchedSignals.size(); ++i) {
        struct sigaction action = {};
        action.sa_handler = noteSignal;
        static_cast<void>(sigemptyset(&action.sa_mask));
        if (sigaction(watchedSignals[i], nullptr, &m_previous[i]) != 0 ||
            m_previous[i].sa_handler == SIG_IGN) {
            continue;
        }
        m_watched[i] = sigaction(watchedSignals[i], &action, nullptr) == 0;
    }
    // Back in the foreground, SIGCONT leads here again.
    if (isInBackground(m_terminal) || tcgetattr(m_terminal, &m_shown) != 0) {
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
        // A shell that moved the process to the background has its own settings in place.
        m_hidden = !isInBackground(m_terminal) && !setTerminal(m_terminal, m_shown);
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
