#include "program_run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>

namespace hosts {

namespace {

constexpr auto patience = std::chrono::seconds(60);

// An unnamed file: unlike a pipe it never makes either side wait.
class ScratchFile {
public:
    explicit ScratchFile(const std::string& content = {})
        : m_file(std::tmpfile(), &std::fclose)
    {
        if (m_file == nullptr ||
            std::fwrite(content.data(), 1, content.size(), m_file.get()) != content.size() ||
            std::fflush(m_file.get()) != 0 || ::lseek(descriptor(), 0, SEEK_SET) != 0) {
            throw std::runtime_error("no temporary file");
        }
    }

    int descriptor() const { return ::fileno(m_file.get()); }

    std::string content() const
    {
        std::string text;
        std::array<char, 4096> part{};
        off_t position = 0;
        for (;;) {
            const ssize_t got = ::pread(descriptor(), part.data(), part.size(), position);
            if (got <= 0) {
                return text;
            }
            text.append(part.data(), static_cast<std::size_t>(got));
            position += got;
        }
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
};

// The input goes through a pipe, so that nobody can seek back in it; short enough never to block.
int pipeHolding(const std::string& input)
{
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const ssize_t written = ::write(ends[1], input.data(), input.size());
    ::close(ends[1]);
    if (written != static_cast<ssize_t>(input.size())) {
        throw std::runtime_error("the input does not fit a pipe");
    }
    return ends[0];
}

int waitFor(pid_t child)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

std::vector<std::string> environmentWith(const Environment& variables)
{
    Environment all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto equals = text.find('=');
        all[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& [name, value] : variables) {
        all[name] = value;
    }
    std::vector<std::string> lines;
    lines.reserve(all.size());
    for (const auto& [name, value] : all) {
        std::string& line = lines.emplace_back(name);
        line.append("=").append(value);
    }
    return lines;
}

void becomeProgram(const std::vector<std::string>& command, const Environment& variables)
{
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        result.reserve(texts.size() + 1);
        for (std::string& text : texts) {
            result.push_back(text.data());
        }
        result.push_back(nullptr);
        return result;
    };
    // Ignored where a shell runs the tests in the background, and then in every program they start.
    ::signal(SIGINT, SIG_DFL);
    std::vector<std::string> arguments = command;
    std::vector<std::string> environment = environmentWith(variables);
    ::execvpe(command.front().c_str(), pointers(arguments).data(), pointers(environment).data());
}

ProgramEnd runCopy(const std::string& input, const std::function<int()>& work)
{
    const int inputEnd = pipeHolding(input);
    const ScratchFile output;
    const ScratchFile errors;
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(inputEnd, STDIN_FILENO);
        ::dup2(output.descriptor(), STDOUT_FILENO);
        ::dup2(errors.descriptor(), STDERR_FILENO);
        const int exitCode = work();
        std::fflush(stdout);
        ::_exit(exitCode);
    }
    ::close(inputEnd);
    ProgramEnd end;
    if (child > 0) {
        end.exitCode = waitFor(child);
    }
    end.output = output.content();
    end.errors = errors.content();
    return end;
}

ProgramEnd runProgram(const std::vector<std::string>& command, const std::string& input,
                      const Environment& variables)
{
    return runCopy(input, [&] {
        becomeProgram(command, variables);
        return 127;
    });
}

}  // namespace hosts
