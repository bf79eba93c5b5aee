#include "hosts/console/arguments.h"

#include "hosts/console/authority_way.h"
#include "hosts/console/command_line.h"
#include "hosts/console/terminal.h"

#include <QFile>

#include <CLI/CLI.hpp>

#include <string>

namespace console {

namespace {

QString fromArgument(const std::string& text)
{
    return QFile::decodeName(QByteArray::fromStdString(text));
}

// --help speaks the language too, so it is looked for before anything is declared.
Language wantedLanguage(int argc, const char* const* argv)
{
    const QString option = QStringLiteral("--lang");
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        const QString value = argument == option && i + 1 < argc
                                  ? QString::fromLocal8Bit(argv[i + 1])
                                  : argument.section(option + QLatin1Char('='), 1);
        if (const auto named = languageNamed(value)) {
            return *named;
        }
    }
    return languageOfEnvironment();
}

Arguments completed(const CommandLine& line)
{
    Arguments arguments = line.arguments;
    const RawArguments& raw = line.raw;
    arguments.reader = fromArgument(raw.reader);
    arguments.pinFile = fromArgument(raw.pinFile);
    arguments.pinDescriptor = raw.pinDescriptor;
    arguments.pinVariable = fromArgument(raw.pinVariable);
    arguments.certificate = fromArgument(raw.certificate);
    arguments.renewal = fromArgument(raw.renewal);
    if (reachesAuthority(arguments.command)) {
        arguments.authority =
            chosenAuthority(fromArgument(raw.authority), fromArgument(raw.authoritiesFile));
    }
    arguments.issuedFile = fromArgument(raw.issuedFile);
    arguments.saveRequestFile = fromArgument(raw.saveRequestFile);
    arguments.saveCertificateFile = fromArgument(raw.saveCertificateFile);
    arguments.atr = fromArgument(raw.atr);
    return arguments;
}

}  // namespace

std::optional<Arguments> parseArguments(int argc, const char* const* argv, ExitCode& exitCode)
{
    setLanguage(wantedLanguage(argc, argv));
    const std::unique_ptr<CommandLine> line = declareCommandLine();
    try {
        line->app->parse(argc, argv);
    } catch (const CLI::Success& answered) {
        line->app->exit(answered);
        exitCode = ExitCode::done;
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        complain(QString::fromLocal8Bit(error.what()));
        complain(entryOf(ExitCode::usage).nextStep->string());
        exitCode = ExitCode::usage;
        return std::nullopt;
    }
    try {
        return completed(*line);
    } catch (const enrolment::EnrolmentError& error) {
        complain(error.text() + QLatin1Char('\n') + error.cure());
        exitCode = ExitCode::usage;
        return std::nullopt;
    }
}

}  // namespace console
