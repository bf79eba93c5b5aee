#include "hosts/console/arguments.h"

#include "hosts/console/terminal.h"

#include <QFile>
#include <QProcess>

#include <CLI/CLI.hpp>
#include <card_v_func.h>

#include <string>

namespace console {

namespace {

constexpr int defaultTimeoutSeconds = 300;

QString fromArgument(const std::string& text)
{
    return QFile::decodeName(QByteArray::fromStdString(text));
}

std::string closingHelp()
{
    std::string text =
        "The program of --ca-command reads the request (PEM) on its standard input and\n"
        "writes the certificate (PEM) on its standard output. It is run without a\n"
        "shell; in its arguments {not-after} becomes the end of validity to ask for\n"
        "and {policy} the certificate policy.\n"
        "\nExit codes:\n";
    for (const ExitCodeEntry& entry : exitCodes()) {
        const std::string number = std::to_string(static_cast<int>(entry.code));
        text += std::string(4 - number.size(), ' ') + number + "  " + entry.name + "\n";
    }
    return text;
}

// Values as CLI11 fills them, before they become Qt's.
struct RawArguments {
    std::string reader;
    std::string pinFile;
    std::string pinVariable;
    std::string certificate;
    std::string authorityCommand;
    std::string issuedFile;
    std::string saveRequestFile;
    std::string saveCertificateFile;
};

void declareOptions(CLI::App& app, RawArguments& raw, Arguments& arguments)
{
    app.add_option("--reader", raw.reader, "Use this card reader")->type_name("NAME");
    auto* pinFile =
        app.add_option("--pin-file", raw.pinFile, "Read the PIN from this file")->type_name("FILE");
    app.add_option("--pin-env", raw.pinVariable, "Read the PIN from this environment variable")
        ->type_name("VARIABLE")
        ->excludes(pinFile);
    app.add_option("--certificate", raw.certificate,
                   "Renew this certificate: its number in the table")
        ->type_name("NUMBER");
    auto* command = app.add_option("--ca-command", raw.authorityCommand,
                                   "Ask the authority through this program (below)")
                        ->type_name("\"PROGRAM ...\"");
    app.add_option("--ca-timeout", arguments.authorityTimeoutSeconds,
                   "Seconds that the program may take")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    app.add_option("--issued", raw.issuedFile, "Install the certificate in this file")
        ->type_name("FILE")
        ->excludes(command);
    app.add_option("--save-request", raw.saveRequestFile, "Keep the request in this file")
        ->type_name("FILE");
    app.add_option("--save-certificate", raw.saveCertificateFile,
                   "Keep the certificate in this file")
        ->type_name("FILE");
    app.add_flag("--yes", arguments.yes, "Do not ask for confirmation");
    app.set_version_flag("--version",
                         (QStringLiteral("tarvelo-renew ") + versioneLibreria).toStdString());
    app.get_formatter()->column_width(28);
    app.set_help_flag("--help", "Show this help");
    app.footer(closingHelp());
}

}  // namespace

std::optional<Arguments> parseArguments(int argc, const char* const* argv, ExitCode& exitCode)
{
    CLI::App app("Renews a certificate on a signature card.\n"
                 "The PIN is asked for without echo unless a file or variable holds it.",
                 "tarvelo-renew");
    RawArguments raw;
    Arguments arguments;
    arguments.authorityTimeoutSeconds = defaultTimeoutSeconds;
    declareOptions(app, raw, arguments);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& answered) {
        app.exit(answered);
        exitCode = ExitCode::renewed;
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        complain(QString::fromLocal8Bit(error.what()));
        complain(QString::fromUtf8(entryOf(ExitCode::usage).nextStep));
        exitCode = ExitCode::usage;
        return std::nullopt;
    }

    arguments.reader = fromArgument(raw.reader);
    arguments.pinFile = fromArgument(raw.pinFile);
    arguments.pinVariable = fromArgument(raw.pinVariable);
    arguments.certificate = fromArgument(raw.certificate);
    arguments.authorityCommand = QProcess::splitCommand(fromArgument(raw.authorityCommand));
    arguments.issuedFile = fromArgument(raw.issuedFile);
    arguments.saveRequestFile = fromArgument(raw.saveRequestFile);
    arguments.saveCertificateFile = fromArgument(raw.saveCertificateFile);
    return arguments;
}

}  // namespace console
