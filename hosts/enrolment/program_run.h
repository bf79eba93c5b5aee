// A program of the administrator's, run without a shell and with limits.

#ifndef TARVELOQT_HOSTS_ENROLMENT_PROGRAM_RUN_H
#define TARVELOQT_HOSTS_ENROLMENT_PROGRAM_RUN_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <chrono>

namespace enrolment {

struct ProgramOrder {
    // A path, or a name that is looked for in PATH.
    QString program;
    QStringList arguments;
    // Added to this process's environment.
    QMap<QString, QString> environment;
    QByteArray input;
    std::chrono::milliseconds timeLimit{};
};

struct ProgramEnd {
    int exitCode = 0;
    // At most 1 MiB.
    QByteArray output;
    // The end of what it wrote to standard error, printable, on one line; may be empty.
    QString words;
};

// Throws EnrolmentError: misconfigured (it cannot be started), unreachable (not done in time; the
// program is killed then, not what it started), badAnswer (it crashed, or writes more than 1 MiB).
ProgramEnd runProgram(const ProgramOrder& order);

}  // namespace enrolment

#endif
