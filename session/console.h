#ifndef TARVELOQT_SESSION_CONSOLE_H
#define TARVELOQT_SESSION_CONSOLE_H

#include <QString>

// Questions and answers on the process's standard output and standard input.
namespace session::console {

enum class Echo { shown, hidden };

// Writes the lines of the question as local 8-bit text and flushes, then reads one line of standard
// input, without its line end ("\n" or "\r\n"), and nothing beyond it: the next reader of standard
// input, in this process or outside it, finds what follows. Bytes that the host's C streams have
// already read ahead come first. End of input, and an error, read as the end of the line.
// Echo::hidden: when standard input is a terminal what is typed is not shown.
// One byte is one character (Latin-1) of the result; the buffers in between are wiped.
QString ask(const QString& question, Echo echo);

}  // namespace session::console

#endif
