#include "hosts/console/commands.h"

#include "hosts/console/card_commands.h"
#include "hosts/console/doctor.h"
#include "hosts/console/guided_run.h"
#include "hosts/console/json_answer.h"
#include "hosts/console/log_command.h"
#include "hosts/console/log_excerpt.h"
#include "hosts/console/reader_commands.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"

#include <QJsonDocument>

#include <unistd.h>

#include <exception>
#include <optional>

namespace console {

namespace {

// Fills the answer as it goes and throws Stop to end otherwise than well.
using CommandFunction = void (*)(const Arguments& arguments, QJsonObject& answer);

struct CommandRow {
    Command command;
    CommandFunction run;
};

CommandFunction functionOf(Command command)
{
    static constexpr CommandRow rows[] = {
        {Command::guided, guidedRun},      {Command::readers, showReaders},
        {Command::status, showStatus},     {Command::list, listCertificates},
        {Command::request, makeRequests},  {Command::submit, submitRequests},
        {Command::install, installIssued}, {Command::renew, renewCertificates},
        {Command::resume, resumeRenewals}, {Command::doctor, examine},
        {Command::explainAtr, explainAtr}, {Command::log, showLog},
    };
    for (const CommandRow& row : rows) {
        if (row.command == command) {
            return row.run;
        }
    }
    return guidedRun;
}

std::optional<Stop> endOf(const Arguments& arguments, QJsonObject& answer)
{
    try {
        functionOf(arguments.command)(arguments, answer);
        return std::nullopt;
    } catch (const Stop& stop) {
        return stop;
    } catch (const std::exception& error) {
        return Stop(ExitCode::internalError, QString::fromLocal8Bit(error.what()));
    }
}

void putDocument(const Arguments& arguments, const QJsonObject& answer, const Stop* stop)
{
    QJsonObject document = documentHead(arguments.command, stop);
    for (auto field = answer.constBegin(); field != answer.constEnd(); ++field) {
        document.insert(field.key(), field.value());
    }
    put(QJsonDocument(document).toJson(QJsonDocument::Indented));
}

}  // namespace

ExitCode runCommand(const Arguments& arguments)
{
    setStreamUse({arguments.json, arguments.ask});
    QJsonObject answer;
    const std::optional<Stop> stop = endOf(arguments, answer);
    if (arguments.json) {
        putDocument(arguments, answer, stop ? &*stop : nullptr);
    } else if (stop) {
        complain(QLatin1Char('\n') + stopMessage(*stop, notedLogPlace(), STDERR_FILENO));
    }
    return stop ? stop->code() : ExitCode::done;
}

}  // namespace console
