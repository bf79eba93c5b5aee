// Other people's programs, which judge what the card libraries did.

#ifndef TARVELOQT_TESTS_CARDLIBS_OUTSIDE_TOOLS_H
#define TARVELOQT_TESTS_CARDLIBS_OUTSIDE_TOOLS_H

#include <filesystem>
#include <string>
#include <vector>

namespace cardlibs_test {

struct ToolRun {
    int exitCode = -1;
    // Standard output and error together.
    std::string output;
};

// Runs the program with the arguments, without a shell.
ToolRun runTool(const std::vector<std::string>& arguments);

void writeText(const std::filesystem::path& file, const std::string& text);
std::string readText(const std::filesystem::path& file);

// Path of SoftHSM2's module, for programs that take no p11-kit name.
std::string softhsmModule();

}  // namespace cardlibs_test

#endif
