// The command line of tarvelo-renew.

#ifndef TARVELOQT_HOSTS_CONSOLE_ARGUMENTS_H
#define TARVELOQT_HOSTS_CONSOLE_ARGUMENTS_H

#include "hosts/console/exit_code.h"
#include "hosts/enrolment/configuration.h"

#include <QString>

#include <optional>

namespace console {

enum class Command {
    guided,
    readers,
    status,
    list,
    request,
    submit,
    install,
    renew,
    resume,
    doctor,
    explainAtr,
    log,
};

// As the command line and the JSON output call it; the guided run has none of its own.
const char* nameOf(Command command);

struct Arguments {
    Command command = Command::guided;
    // One JSON document on standard output, nothing else there.
    bool json = false;

    // Empty: the reader of the configuration file, else the library chooses or asks.
    QString reader;
    // Where the PIN comes from; all three absent: it is asked for.
    QString pinFile;
    std::optional<int> pinDescriptor;
    QString pinVariable;
    // Ask questions although standard input is not a terminal.
    bool ask = false;
    // Do not ask for confirmation.
    bool yes = false;
    // Use the PIN although it is the last try.
    bool lastTry = false;
    // Show what would be done, and write nothing.
    bool dryRun = false;

    // Number in the table, row key ("AUT: 1") or renewal identifier; empty: choose or ask.
    QString certificate;
    // Every certificate that is due.
    bool all = false;
    // Which kept renewal: the first digits of its identifier; empty: the only one, or all.
    QString renewal;

    // The way to the certification authority; none: requests and certificates go by hand.
    std::optional<enrolment::Configuration> authority;
    // A certificate issued earlier, to be installed without asking the authority.
    QString issuedFile;
    QString saveRequestFile;
    QString saveCertificateFile;

    // explain-atr: hexadecimal.
    QString atr;
    // log: how many of the last lines.
    int logLines = 0;

    bool namesPinSource() const
    {
        return !pinFile.isEmpty() || !pinVariable.isEmpty() || pinDescriptor.has_value();
    }
};

// Parses the command line and sets the language. Nothing when the run ends here: --help and
// --version have then been answered on standard output, errors on standard error, and exitCode is
// set.
std::optional<Arguments> parseArguments(int argc, const char* const* argv, ExitCode& exitCode);

}  // namespace console

#endif
