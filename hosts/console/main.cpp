// tarvelo-renew: renews a certificate on a signature card from the console.

#include "hosts/console/arguments.h"
#include "hosts/console/commands.h"

#include <QCoreApplication>
#include <QHash>

#include <clocale>

int main(int argc, char* argv[])
{
    // The lookups of the library walk its dictionary in hash order: two runs must agree.
    qSetGlobalQHashSeed(0);
    // Names of persons are rarely ASCII: without it the terminal and the log would show "?".
    std::setlocale(LC_ALL, "");
    // QProcess waits through its event dispatcher.
    const QCoreApplication application(argc, argv);

    auto exitCode = console::ExitCode::done;
    const auto arguments = console::parseArguments(argc, argv, exitCode);
    if (arguments) {
        exitCode = console::runCommand(*arguments);
    }
    return static_cast<int>(exitCode);
}
