#include "tests/cardlibs/outside_tools.h"

#include "cardlibs/token/module_file.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace cardlibs_test {

ToolRun runTool(const std::vector<std::string>& arguments)
{
    std::array<int, 2> channel = {};
    if (pipe(channel.data()) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no process");
    if (child == 0) {
        dup2(channel[1], STDOUT_FILENO);
        dup2(channel[1], STDERR_FILENO);
        close(channel[0]);
        close(channel[1]);
        std::vector<char*> pointers;
        std::vector<std::string> copies = arguments;
        pointers.reserve(copies.size() + 1);
        for (std::string& copy : copies)
            pointers.push_back(copy.data());
        pointers.push_back(nullptr);
        execvp(pointers[0], pointers.data());
        _exit(127);
    }
    close(channel[1]);
    ToolRun run;
    std::array<char, 4096> buffer = {};
    ssize_t got = 0;
    while ((got = read(channel[0], buffer.data(), buffer.size())) > 0)
        run.output.append(buffer.data(), static_cast<std::size_t>(got));
    close(channel[0]);
    int status = 0;
    if (waitpid(child, &status, 0) == child && WIFEXITED(status))
        run.exitCode = WEXITSTATUS(status);
    return run;
}

void writeText(const std::filesystem::path& file, const std::string& text)
{
    std::ofstream(file, std::ios::binary) << text;
}

std::string readText(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

std::string softhsmModule()
{
    return cardlibs::token::moduleFile("softhsm2");
}

}  // namespace cardlibs_test
