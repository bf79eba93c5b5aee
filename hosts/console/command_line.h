// The commands and options of tarvelo-renew, declared once for the parser, --help, the manual pages
// and the shells' completions.

#ifndef TARVELOQT_HOSTS_CONSOLE_COMMAND_LINE_H
#define TARVELOQT_HOSTS_CONSOLE_COMMAND_LINE_H

#include "hosts/console/arguments.h"

#include <CLI/App.hpp>

#include <memory>
#include <string>
#include <vector>

namespace console {

// Values as CLI11 fills them, before they become Qt's.
struct RawArguments {
    std::string language;
    std::string reader;
    std::string pinFile;
    std::optional<int> pinDescriptor;
    std::string pinVariable;
    std::string certificate;
    std::string renewal;
    std::string authority;
    std::string authoritiesFile;
    std::string issuedFile;
    std::string saveRequestFile;
    std::string saveCertificateFile;
    std::string atr;
};

struct CommandLine {
    // With one subcommand for each Command but the guided run, which is the program without one.
    // Descriptions are in the language that was set when it was made. Writes into the two below.
    std::unique_ptr<CLI::App> app;
    RawArguments raw;
    Arguments arguments;
};

// The members stay where they are: the parser holds pointers to them.
std::unique_ptr<CommandLine> declareCommandLine();

// The command goes to a certification authority.
bool reachesAuthority(Command command);

// The paragraph below the options in --help and in the manual page.
std::string closingHelp();

}  // namespace console

#endif
