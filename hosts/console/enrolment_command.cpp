#include "hosts/console/enrolment_command.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/text_layout.h"

#include <QProcess>

namespace console {

namespace {

constexpr int largestAnswer = 1048576;
constexpr int longestComplaint = 1000;

QString ownWords(QProcess& process)
{
    const QString words =
        QString::fromLocal8Bit(process.readAllStandardError()).simplified().right(longestComplaint);
    return words.isEmpty() ? Text("Non ha dato motivi.", "It gave no reason.").string()
                           : Text("Dice: %1", "It says: %1").arg(printable(words));
}

[[noreturn]] void fail(const QString& sentence)
{
    throw Stop(ExitCode::authorityFailed, sentence);
}

}  // namespace

QStringList withPlaceholders(const QStringList& command, const QMap<QString, QString>& values)
{
    QStringList result = command;
    for (auto value = values.constBegin(); value != values.constEnd(); ++value) {
        result.replaceInStrings(QLatin1Char('{') + value.key() + QLatin1Char('}'), value.value());
    }
    return result;
}

QByteArray enrolByCommand(const QStringList& command, const QByteArray& requestPem,
                          int timeoutSeconds)
{
    if (command.isEmpty()) {
        fail(Text("--ca-command non indica un programma.", "No program is named in --ca-command."));
    }
    const QString& program = command.first();
    QProcess process;
    process.start(program, command.mid(1));
    if (!process.waitForStarted()) {
        fail(Text("Impossibile avviare il programma %1: %2.",
                  "The program %1 cannot be started: %2.")
                 .arg(program, process.errorString()));
    }
    // A program that does not read its input is judged by what it answers.
    process.write(requestPem);
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutSeconds * 1000) &&
        process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        fail(Text("Il programma %1 non ha finito entro %2 secondi.",
                  "The program %1 was not done within %2 seconds.")
                 .arg(program, QString::number(timeoutSeconds)));
    }
    if (process.exitStatus() != QProcess::NormalExit) {
        fail(Text("Il programma %1 è andato in errore. %2", "The program %1 crashed. %2")
                 .arg(program, ownWords(process)));
    }
    if (process.exitCode() != 0) {
        fail(Text("Il programma %1 è finito con il codice %2. %3",
                  "The program %1 ended with code %2. %3")
                 .arg(program, QString::number(process.exitCode()), ownWords(process)));
    }
    QByteArray answer = process.readAllStandardOutput();
    if (answer.isEmpty()) {
        fail(Text("Il programma %1 non ha scritto nulla. %2", "The program %1 wrote nothing. %2")
                 .arg(program, ownWords(process)));
    }
    if (answer.size() > largestAnswer) {
        fail(Text("Il programma %1 ha scritto più di quanto serva a un certificato.",
                  "The program %1 wrote more than a certificate can need.")
                 .arg(program));
    }
    return answer;
}

}  // namespace console
