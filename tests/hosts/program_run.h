// Runs a program to its end, with standard input from a text.

#ifndef TARVELOQT_TESTS_HOSTS_PROGRAM_RUN_H
#define TARVELOQT_TESTS_HOSTS_PROGRAM_RUN_H

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace hosts {

using Environment = std::map<std::string, std::string>;

struct ProgramEnd {
    // -1 when the program was killed by a signal or could not be started.
    int exitCode = -1;
    std::string output;
    std::string errors;
};

// The present environment with these variables added or replaced, as execve takes it.
std::vector<std::string> environmentWith(const Environment& variables);

// command[0] is the program's path or its name in PATH. A program that is not done within a minute
// is killed.
ProgramEnd runProgram(const std::vector<std::string>& command, const std::string& input,
                      const Environment& variables);

// The same for a copy of this process that does the work and exits with what it returns.
ProgramEnd runCopy(const std::string& input, const std::function<int()>& work);

// Replaces this process by the program; returns only when that fails.
void becomeProgram(const std::vector<std::string>& command, const Environment& variables);

}  // namespace hosts

#endif
