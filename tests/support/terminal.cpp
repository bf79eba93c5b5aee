#include "terminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace support {

namespace {

constexpr int patienceMs = 20000;
constexpr int pollMs = 10;

std::string describe(int status)
{
    if (WIFSTOPPED(status))
        return "stopped";
    if (WIFCONTINUED(status))
        return "continued";
    if (WIFSIGNALED(status))
        return "killed " + std::to_string(WTERMSIG(status));
    return "exited " + std::to_string(WEXITSTATUS(status));
}

void say(int descriptor, const std::string& text)
{
    const std::string line = text + "\n";
    if (write(descriptor, line.data(), line.size()) < 0)
        _exit(EXIT_FAILURE);
}

std::string readLine(int descriptor)
{
    std::string line;
    char byte = 0;
    pollfd waiting{descriptor, POLLIN, 0};
    while (poll(&waiting, 1, patienceMs) == 1 && read(descriptor, &byte, 1) == 1 && byte != '\n')
        line += byte;
    return line;
}

// The terminal and the two process groups that it can belong to, for the leader's signal handler.
int jobTerminal = -1;
pid_t jobGroup = -1;
constexpr int takeTerminal = SIGUSR1;
constexpr int giveTerminal = SIGUSR2;

void handTerminalOver(int number)
{
    const int savedErrno = errno;
    if (tcsetpgrp(jobTerminal, number == giveTerminal ? jobGroup : getpgrp()) != 0)
        _exit(EXIT_FAILURE);
    errno = savedErrno;
}

// After a process has ended its number here is -1, which to kill means every process there is.
void sendSignal(pid_t process, int number)
{
    ASSERT_GT(process, 0);
    EXPECT_EQ(kill(process, number), 0);
}

pid_t waitForChange(pid_t child, int& status)
{
    pid_t changed = -1;
    do {
        changed = waitpid(child, &status, WUNTRACED | WCONTINUED);
    } while (changed == -1 && errno == EINTR);
    return changed;
}

// The leader of the session: starts the job in the foreground and reports what becomes of it.
[[noreturn]] void leadSession(int terminal, int changes, const std::function<int()>& job)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setsid();
    ioctl(terminal, TIOCSCTTY, 0);
    ::signal(SIGTTOU, SIG_IGN);
    std::array<int, 2> start{};
    if (pipe(start.data()) != 0)
        _exit(EXIT_FAILURE);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::signal(SIGTTOU, SIG_DFL);
        dup2(terminal, STDIN_FILENO);
        dup2(terminal, STDOUT_FILENO);
        char go = 0;
        if (read(start[0], &go, 1) != 1)
            _exit(EXIT_FAILURE);
        std::exit(job());
    }
    setpgid(child, child);
    tcsetpgrp(terminal, child);
    jobTerminal = terminal;
    jobGroup = child;
    ::signal(takeTerminal, handTerminalOver);
    ::signal(giveTerminal, handTerminalOver);
    say(changes, std::to_string(child));
    if (write(start[1], "g", 1) != 1)
        _exit(EXIT_FAILURE);
    int status = 0;
    do {
        if (waitForChange(child, status) != child)
            _exit(EXIT_FAILURE);
        say(changes, describe(status));
    } while (!WIFEXITED(status) && !WIFSIGNALED(status));
    _exit(EXIT_SUCCESS);
}

}  // namespace

Terminal::Terminal(const std::function<int()>& job)
{
    std::fflush(nullptr);
    std::array<int, 2> changes{};
    if (openpty(&m_terminal, &m_userSide, nullptr, nullptr, nullptr) != 0 ||
        pipe(changes.data()) != 0)
        throw std::runtime_error("no pseudo-terminal: is /dev/pts mounted?");
    m_firstSettings = settings();
    m_changes = changes[0];
    m_leader = fork();
    if (m_leader == 0) {
        close(m_terminal);
        close(changes[0]);
        leadSession(m_userSide, changes[1], job);
    }
    close(changes[1]);
    m_job = static_cast<pid_t>(std::atol(readLine(m_changes).c_str()));
    if (m_leader < 0 || m_job <= 0)
        throw std::runtime_error("no process on the pseudo-terminal");
}

Terminal::~Terminal()
{
    if (m_job > 0)
        kill(m_job, SIGKILL);
    if (m_leader > 0)
        waitpid(m_leader, nullptr, 0);
    for (const int descriptor : {m_terminal, m_userSide, m_changes})
        close(descriptor);
}

bool Terminal::readSome(int timeoutMs)
{
    pollfd waiting{m_terminal, POLLIN, 0};
    if (poll(&waiting, 1, timeoutMs) != 1)
        return false;
    std::array<char, 4096> chunk{};
    const ssize_t size = read(m_terminal, chunk.data(), chunk.size());
    if (size > 0)
        m_screen.append(chunk.data(), static_cast<std::size_t>(size));
    return size > 0;
}

void Terminal::waitForText(const std::string& text)
{
    std::size_t found = std::string::npos;
    while ((found = m_screen.find(text, m_seen)) == std::string::npos) {
        if (!readSome(patienceMs)) {
            ADD_FAILURE() << "\"" << text << "\" was not shown; shown was: " << m_screen;
            return;
        }
    }
    m_seen = found + text.size();
}

termios Terminal::settings() const
{
    termios settings{};
    EXPECT_EQ(tcgetattr(m_userSide, &settings), 0);
    return settings;
}

void Terminal::setSettings(const termios& settings) const
{
    EXPECT_EQ(tcsetattr(m_userSide, TCSANOW, &settings), 0);
    EXPECT_TRUE(areSame(this->settings(), settings));
}

bool Terminal::echoes() const
{
    return (settings().c_lflag & ECHO) != 0;
}

void Terminal::waitForEcho(bool expected)
{
    for (int waited = 0; waited < patienceMs; waited += pollMs) {
        if (echoes() == expected)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(pollMs));
    }
    ADD_FAILURE() << "the terminal's echo is still " << (expected ? "off" : "on");
}

void Terminal::moveToBackground()
{
    moveTerminal(takeTerminal, m_leader);
}

void Terminal::moveToForeground()
{
    moveTerminal(giveTerminal, m_job);
}

void Terminal::moveTerminal(int signalToLeader, pid_t newOwner) const
{
    sendSignal(m_leader, signalToLeader);
    for (int waited = 0; waited < patienceMs; waited += pollMs) {
        if (tcgetpgrp(m_terminal) == newOwner)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(pollMs));
    }
    ADD_FAILURE() << "the terminal was not handed over";
}

void Terminal::type(const std::string& keys)
{
    EXPECT_EQ(write(m_terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void Terminal::signal(int number) const
{
    sendSignal(m_job, number);
}

std::string Terminal::nextChange()
{
    std::string change = readLine(m_changes);
    if (change.rfind("exited", 0) == 0 || change.rfind("killed", 0) == 0)
        m_job = -1;
    return change;
}

std::string Terminal::screen()
{
    while (readSome(0)) {
    }
    return m_screen;
}

bool areSame(const termios& one, const termios& other)
{
    return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
           one.c_cflag == other.c_cflag && one.c_lflag == other.c_lflag &&
           std::equal(std::begin(one.c_cc), std::end(one.c_cc), std::begin(other.c_cc));
}

}  // namespace support
