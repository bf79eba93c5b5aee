// Standard input, output and error, as the screens use them.
//
// The renewal library asks its own questions on the same two streams, so nothing here keeps bytes
// back: each output is written at once, and an answer is read byte by byte up to its line end.

#ifndef TARVELOQT_HOSTS_CONSOLE_TERMINAL_H
#define TARVELOQT_HOSTS_CONSOLE_TERMINAL_H

#include <QString>

#include <optional>

namespace console {

// Writes the text and a line end to standard output, in the encoding of the locale.
void say(const QString& text);

// The same without the line end, for questions.
void ask(const QString& question);

// Writes the text and a line end to standard error.
void complain(const QString& text);

// One line of standard input without its line end, in the encoding of the locale. Nothing at the
// end of input; of a line longer than 4,096 bytes the rest is dropped.
std::optional<QString> readAnswer();

// Whether a person can answer: standard input is a terminal.
bool isInteractive();

}  // namespace console

#endif
