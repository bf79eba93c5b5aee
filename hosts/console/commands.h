// The commands of tarvelo-renew: one function each, and what is common to the end of all of them.

#ifndef TARVELOQT_HOSTS_CONSOLE_COMMANDS_H
#define TARVELOQT_HOSTS_CONSOLE_COMMANDS_H

#include "hosts/console/arguments.h"
#include "hosts/console/exit_code.h"

namespace console {

// Runs the command and tells how it ended: with --json as one document on standard output,
// otherwise, when it did not end well, in sentences on standard error.
ExitCode runCommand(const Arguments& arguments);

}  // namespace console

#endif
