// One run of a test program: a folder of its own, holding the program itself, so that programs that
// run at the same time share neither marker files beside the executable nor a home folder.

#ifndef TARVELOQT_TESTS_SUPPORT_TEST_RUN_H
#define TARVELOQT_TESTS_SUPPORT_TEST_RUN_H

#include <string>
#include <vector>

namespace support {

// The run's folder, absolute and without a final slash.
std::string runFolder();

// The folder that holds the running executable.
std::string applicationFolder();

// Where the library looks for the ATR table.
std::string atrTable();

// Makes an empty folder under the run's folder and gives its path.
std::string makeFolder(const std::string& name);

struct Outcome {
    int exitCode;
    std::string output;  // standard output and standard error
};

// Runs this program again with these arguments and additional environment variables (name=value).
Outcome runAgain(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment);

}  // namespace support

#endif
