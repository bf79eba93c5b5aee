// A certification authority behind a program: request in, certificate out.

#ifndef TARVELOQT_HOSTS_CONSOLE_ENROLMENT_COMMAND_H
#define TARVELOQT_HOSTS_CONSOLE_ENROLMENT_COMMAND_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

namespace console {

// Each "{name}" in the arguments replaced by its value; names without a value stay as they are.
QStringList withPlaceholders(const QStringList& command, const QMap<QString, QString>& values);

// Runs command[0] with the other elements as its arguments, without a shell, hands it the request
// on standard input and returns what it wrote on standard output, at most 1,048,576 bytes. Waits at
// most timeoutSeconds, then kills it. Throws Stop (authorityFailed) with the program's own words
// when it cannot be started, is not done in time, fails or writes nothing.
QByteArray enrolByCommand(const QStringList& command, const QByteArray& requestPem,
                          int timeoutSeconds);

}  // namespace console

#endif
