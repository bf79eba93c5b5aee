#include "hosts/console/log_command.h"

#include "hosts/console/log_excerpt.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <QFile>
#include <QJsonArray>

namespace console {

void showLog(const Arguments& arguments, QJsonObject& answer)
{
    const QString path = logFile();
    answer.insert(QStringLiteral("path"), path);
    QFile log(path);
    if (!log.open(QIODevice::ReadOnly)) {
        throw Stop(ExitCode::fileFailed,
                   Text("Impossibile leggere il registro %1: %2.", "The log %1 cannot be read: %2.")
                       .arg(path, log.errorString()));
    }
    QStringList lines = QString::fromLocal8Bit(log.readAll()).split(QLatin1Char('\n'));
    while (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    lines = lines.mid(std::max(0, static_cast<int>(lines.size()) - arguments.logLines));
    say(Text("Registro: %1\n", "Log: %1\n").arg(path));
    QJsonArray array;
    for (const QString& line : lines) {
        say(printable(line));
        array.append(line);
    }
    answer.insert(QStringLiteral("lines"), array);
}

}  // namespace console
