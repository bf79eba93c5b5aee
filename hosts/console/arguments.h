// The command line of tarvelo-renew.

#ifndef TARVELOQT_HOSTS_CONSOLE_ARGUMENTS_H
#define TARVELOQT_HOSTS_CONSOLE_ARGUMENTS_H

#include "hosts/console/exit_code.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace console {

struct Arguments {
    // Empty: the reader of the configuration file, else the library chooses or asks.
    QString reader;
    // Where the PIN comes from; both empty: it is asked for.
    QString pinFile;
    QString pinVariable;
    // Number in the table, row key ("AUT: 1") or renewal identifier; empty: choose or ask.
    QString certificate;
    // Program and arguments that turn a request into a certificate; empty: by hand.
    QStringList authorityCommand;
    int authorityTimeoutSeconds = 0;
    // A certificate issued earlier, to be installed without asking the authority.
    QString issuedFile;
    QString saveRequestFile;
    QString saveCertificateFile;
    bool yes = false;
};

// Parses the command line. Nothing when the run ends here: --help and --version have then been
// answered on standard output, errors on standard error, and exitCode is set.
std::optional<Arguments> parseArguments(int argc, const char* const* argv, ExitCode& exitCode);

}  // namespace console

#endif
