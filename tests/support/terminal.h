// A pseudo-terminal with a program of its own on it: a process that runs a function as the
// foreground job of a session, under a leader that stands for the shell.

#ifndef TARVELOQT_TESTS_SUPPORT_TERMINAL_H
#define TARVELOQT_TESTS_SUPPORT_TERMINAL_H

#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <string>

namespace support {

class Terminal {
public:
    // Starts the function; what it returns is the job's exit code.
    explicit Terminal(const std::function<int()>& job);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Waits until the terminal has shown this text after what earlier calls waited for; fails the
    // test after some seconds.
    void waitForText(const std::string& text);

    // Waits until the terminal echoes what is typed, or does not.
    void waitForEcho(bool echoes);
    bool echoes() const;

    // The terminal's settings, before the job started and now. The shell puts its own in place
    // whenever its job is not in the foreground.
    const termios& firstSettings() const { return m_firstSettings; }
    termios settings() const;
    void setSettings(const termios& settings) const;

    // Has the shell take the terminal from the job, and give it back.
    void moveToBackground();
    void moveToForeground();

    void type(const std::string& keys);
    void signal(int number) const;

    // Waits for the next change of the job, as the shell sees it: "stopped", "continued",
    // "exited <code>", "killed <signal>".
    std::string nextChange();

    // Everything shown so far.
    std::string screen();

private:
    bool readSome(int timeoutMs);
    void moveTerminal(int signalToLeader, pid_t newOwner) const;

    int m_terminal = -1;
    int m_userSide = -1;
    int m_changes = -1;
    pid_t m_leader = -1;
    pid_t m_job = -1;
    termios m_firstSettings{};
    std::string m_screen;
    std::size_t m_seen = 0;
};

// Whether every setting is the same.
bool areSame(const termios& one, const termios& other);

}  // namespace support

#endif
