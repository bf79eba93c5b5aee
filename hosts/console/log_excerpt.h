// What the library wrote into its log during one operation: several operations answer only yes or
// no and leave the cause there.

#ifndef TARVELOQT_HOSTS_CONSOLE_LOG_EXCERPT_H
#define TARVELOQT_HOSTS_CONSOLE_LOG_EXCERPT_H

#include <QString>
#include <QStringList>

namespace console {

// Whether the log is a file; when the library could not open one, the log goes to standard output.
// To be asked while the session lasts, like the next.
bool isLogReadable();

// The file that the library keeps its log in when it can, whether there is one yet or not.
QString logFile();

// Remembers, while a session lasts, where its log goes, for the messages after it.
void noteLogPlace();

// The file's path or "standard output"; empty before the first session.
QString notedLogPlace();

class LogExcerpt {
public:
    // Remembers the present end of the log.
    LogExcerpt();

    // What was written since, one entry per line, without time stamps, blank lines and repetitions.
    // Empty when the log goes to standard output, where the user has read it already.
    QStringList lines() const;

private:
    qint64 m_start = 0;
};

// The lines of a log text as `lines` gives them.
QStringList plainLogLines(const QString& text);

}  // namespace console

#endif
