#include "bench/renewal/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

using std::chrono::nanoseconds;

std::array<int, 2> makePipe()
{
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe to be had");
    }
    return ends;
}

nanoseconds durationOf(const timeval& time)
{
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

[[noreturn]] void become(const std::vector<std::string>& arguments)
{
    std::vector<std::string> copies = arguments;
    std::vector<char*> pointers;
    pointers.reserve(copies.size() + 1);
    for (std::string& copy : copies) {
        pointers.push_back(copy.data());
    }
    pointers.push_back(nullptr);
    // What this program ignores would stay ignored in the other one.
    signal(SIGPIPE, SIG_DFL);
    execvp(pointers[0], pointers.data());
    _exit(127);
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments, ErrorOutput errorOutput)
    : m_program(arguments.at(0))
{
    const std::array<int, 2> toChild = makePipe();
    const std::array<int, 2> fromChild = makePipe();
    m_start = std::chrono::steady_clock::now();
    m_process = fork();
    if (m_process == 0) {
        dup2(toChild[0], STDIN_FILENO);
        dup2(fromChild[1], STDOUT_FILENO);
        if (errorOutput == ErrorOutput::withOutput) {
            dup2(fromChild[1], STDERR_FILENO);
        }
        become(arguments);
    }
    close(toChild[0]);
    close(fromChild[1]);
    m_input = toChild[1];
    m_output = fromChild[0];
    if (m_process < 0) {
        close(m_input);
        close(m_output);
        throw std::runtime_error("cannot start " + m_program);
    }
}

Process::~Process()
{
    if (m_input >= 0) {
        close(m_input);
    }
    close(m_output);
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
}

std::string Process::readLine()
{
    std::string line;
    char c = 0;
    while (read(m_output, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

std::string Process::readAll()
{
    std::string text;
    std::array<char, 4096> buffer = {};
    for (ssize_t got = 0; (got = read(m_output, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
}

void Process::writeLine(const std::string& line)
{
    const std::string text = line + "\n";
    if (write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error(m_program + " does not listen any more");
    }
}

ProcessEnd Process::end()
{
    close(std::exchange(m_input, -1));
    int status = 0;
    rusage usage = {};
    while (wait4(m_process, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error("lost sight of " + m_program);
        }
    }
    m_process = -1;
    ProcessEnd ended;
    ended.wall = std::chrono::steady_clock::now() - m_start;
    ended.cpu = durationOf(usage.ru_utime) + durationOf(usage.ru_stime);
    ended.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
}

}  // namespace bench
