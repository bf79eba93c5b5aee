// What the shells complete after "tarvelo-renew".

#ifndef TARVELOQT_HOSTS_CONSOLE_REFERENCE_COMPLETIONS_H
#define TARVELOQT_HOSTS_CONSOLE_REFERENCE_COMPLETIONS_H

#include <string>

namespace console::reference {

// Commands, each command's options, and the names of files where an option takes one. Descriptions
// are in English, as in the completions of other programs.
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

}  // namespace console::reference

#endif
