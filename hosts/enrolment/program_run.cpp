#include "hosts/enrolment/program_run.h"

#include "hosts/enrolment/enrolment_error.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QProcess>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int largestOutput = 1048576;
constexpr int longestComplaint = 1000;
// How long the process may be silent before it is looked whether its time is over.
constexpr int lookMilliseconds = 50;

// What the program wrote, taken from it while it runs, so that a talkative one fills no memory.
struct Written {
    QByteArray output;
    QByteArray errors;

    void take(QProcess& process)
    {
        output += process.readAllStandardOutput();
        errors = (errors + process.readAllStandardError()).right(4 * longestComplaint);
    }

    QString words() const
    {
        return printable(QString::fromLocal8Bit(errors).simplified().right(longestComplaint));
    }
};

[[noreturn]] void endBy(Cause cause, const QString& sentence, QProcess& process)
{
    process.kill();
    process.waitForFinished();
    throw EnrolmentError(cause, sentence);
}

}  // namespace

ProgramEnd runProgram(const ProgramOrder& order)
{
    const QString name = printable(order.program);
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto entry = order.environment.begin(); entry != order.environment.end(); ++entry) {
        environment.insert(entry.key(), entry.value());
    }
    process.setProcessEnvironment(environment);
    process.start(order.program, order.arguments);
    if (!process.waitForStarted()) {
        throw EnrolmentError(Cause::misconfigured, Text("Impossibile avviare il programma %1: %2.",
                                                        "The program %1 cannot be started: %2.")
                                                       .arg(name, process.errorString()));
    }
    // A program that does not read its input is judged by what it answers.
    process.write(order.input);
    process.closeWriteChannel();
    const Clock::time_point end = Clock::now() + order.timeLimit;
    Written written;
    while (process.state() != QProcess::NotRunning) {
        if (!process.waitForReadyRead(lookMilliseconds)) {
            process.waitForFinished(lookMilliseconds);
        }
        written.take(process);
        if (written.output.size() > largestOutput) {
            endBy(Cause::badAnswer,
                  Text("Il programma %1 ha scritto più di quanto serva a un certificato.",
                       "The program %1 wrote more than a certificate can need.")
                      .arg(name),
                  process);
        }
        if (process.state() != QProcess::NotRunning && Clock::now() >= end) {
            const auto seconds = std::chrono::duration<double>(order.timeLimit).count();
            endBy(Cause::unreachable,
                  Text("Il programma %1 non ha finito entro %2 secondi. %3",
                       "The program %1 was not done within %2 seconds. %3")
                      .arg(name, QString::number(seconds), written.words())
                      .trimmed(),
                  process);
        }
    }
    written.take(process);
    if (process.exitStatus() != QProcess::NormalExit) {
        throw EnrolmentError(Cause::badAnswer, Text("Il programma %1 è andato in errore. %2",
                                                    "The program %1 crashed. %2")
                                                   .arg(name, written.words())
                                                   .trimmed());
    }
    return {process.exitCode(), written.output, written.words()};
}

}  // namespace enrolment
