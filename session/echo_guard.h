#ifndef TARVELOQT_SESSION_ECHO_GUARD_H
#define TARVELOQT_SESSION_ECHO_GUARD_H

#include <signal.h>
#include <termios.h>

#include <array>

namespace session {

// Keeps what is typed on a terminal from being shown, from construction to destruction.
//
// Signals that would end or stop the process are passed on only after the terminal shows input
// again; when the process goes on after one (it was continued, or a handler of the host's returned)
// the echo is switched off again. Signals that the host ignores stay ignored. One guard at a time.
class EchoGuard {
public:
    // terminal: an open file descriptor of a terminal.
    explicit EchoGuard(int terminal);
    ~EchoGuard();
    EchoGuard(const EchoGuard&) = delete;
    EchoGuard& operator=(const EchoGuard&) = delete;

    // Returns once the terminal has input or is at its end, having passed on every signal until
    // then.
    void waitForInput();

private:
    // A Ctrl-C or a hang-up, what `kill` and timers send, and the stop key; and what wakes a
    // stopped process, because its shell has shown input again meanwhile.
    static constexpr std::array<int, 10> watchedSignals{
        SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGTSTP, SIGCONT, SIGUSR1, SIGUSR2};

    void hide();
    void show();
    void passOnSignals();

    int m_terminal;
    bool m_hidden = false;
    termios m_shown{};
    std::array<struct sigaction, watchedSignals.size()> m_previous{};
    std::array<bool, watchedSignals.size()> m_watched{};
};

}  // namespace session

#endif
