// The command line of tarvelo-renew as the parser knows it, for everything that describes it.

#ifndef TARVELOQT_HOSTS_CONSOLE_REFERENCE_COMMAND_REFERENCE_H
#define TARVELOQT_HOSTS_CONSOLE_REFERENCE_COMMAND_REFERENCE_H

#include "hosts/console/language.h"

#include <string>
#include <vector>

namespace console::reference {

struct OptionReference {
    // "--reader"; of a positional its name.
    std::string name;
    bool isPositional = false;
    // "FILE"; empty for a flag.
    std::string value;
    std::string purpose;
    // Empty when there is none.
    std::string defaultValue;
    // Names of the options that cannot be given with it.
    std::vector<std::string> excludes;
};

struct CommandReference {
    // Empty for the program without a command.
    std::string name;
    std::string purpose;
    std::vector<OptionReference> options;
};

// The program without a command first. All texts UTF-8 in this language.
std::vector<CommandReference> commandReferences(Language language);

}  // namespace console::reference

#endif
