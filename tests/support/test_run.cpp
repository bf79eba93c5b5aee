#include "test_run.h"

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace fs = std::filesystem;

namespace {

constexpr const char* runFolderVariable = "TARVELOQT_TEST_RUN";

std::string executable()
{
    return fs::read_symlink("/proc/self/exe").string();
}

fs::path makeRunFolder(const fs::path& program)
{
    std::string pattern = program.string() + ".run.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw fs::filesystem_error("no folder for the test run", program,
                                   std::error_code(errno, std::generic_category()));
    return pattern;
}

// A hard link is a file of its own to the kernel's idea of where an executable lies.
fs::path placeProgram(const fs::path& program, const fs::path& folder)
{
    fs::create_directory(folder / "bin");
    fs::path placed = folder / "bin" / program.filename();
    std::error_code error;
    fs::create_hard_link(program, placed, error);
    if (error)
        fs::copy_file(program, placed);
    return placed;
}

void setEnvironment(const fs::path& folder)
{
    const std::string home = (folder / "home").string();
    fs::create_directory(home);
    setenv(runFolderVariable, folder.c_str(), 1);
    setenv("HOME", home.c_str(), 1);
    // A zone with daylight saving time, written out so that no zone file is needed.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
}

int exitCodeOf(int status)
{
    constexpr int killedBase = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : killedBase + WTERMSIG(status);
}

int runInOwnFolder(char** arguments)
{
    const fs::path program = executable();
    const fs::path folder = makeRunFolder(program);
    const fs::path placed = placeProgram(program, folder);
    setEnvironment(folder);

    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execv(placed.c_str(), arguments);
        _exit(EXIT_FAILURE);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    std::error_code error;
    fs::remove_all(folder, error);
    if (WIFSIGNALED(status))
        std::cerr << "killed by signal " << WTERMSIG(status) << '\n';
    return exitCodeOf(status);
}

bool onlyListsTests(int count, char** arguments)
{
    for (int i = 1; i < count; ++i) {
        if (std::strcmp(arguments[i], "--gtest_list_tests") == 0)
            return true;
    }
    return false;
}

}  // namespace

namespace support {

std::string runFolder()
{
    const char* folder = std::getenv(runFolderVariable);
    return folder != nullptr ? folder : "";
}

std::string applicationFolder()
{
    return fs::path(executable()).parent_path().string();
}

std::string atrTable()
{
    return applicationFolder() + "/../p11/ATR-renew.ini";
}

std::string makeFolder(const std::string& name)
{
    const fs::path folder = fs::path(runFolder()) / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder.string();
}

Outcome runAgain(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        return {-1, "no pipe"};
    const std::string program = executable();
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        for (const std::string& variable : environment) {
            const std::size_t equals = variable.find('=');
            setenv(variable.substr(0, equals).c_str(), variable.substr(equals + 1).c_str(), 1);
        }
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(EXIT_FAILURE);
    }
    close(ends[1]);
    std::string output;
    std::array<char, 4096> chunk{};
    for (ssize_t size = 0; (size = read(ends[0], chunk.data(), chunk.size())) > 0;)
        output.append(chunk.data(), static_cast<std::size_t>(size));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return {exitCodeOf(status), output};
}

}  // namespace support

int main(int count, char** arguments)
{
    if (support::runFolder().empty() && !onlyListsTests(count, arguments))
        return runInOwnFolder(arguments);
    testing::InitGoogleMock(&count, arguments);
    return RUN_ALL_TESTS();
}
