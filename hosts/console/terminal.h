// Standard input, output and error, as the screens use them.
//
// The renewal library asks its own questions on the same two streams, so nothing here keeps bytes
// back: each output is written at once, and an answer is read byte by byte up to its line end.

#ifndef TARVELOQT_HOSTS_CONSOLE_TERMINAL_H
#define TARVELOQT_HOSTS_CONSOLE_TERMINAL_H

#include <QByteArray>
#include <QString>

#include <optional>

namespace console {

// What the run may do with the three streams; set once, at its start.
struct StreamUse {
    // Standard output belongs to a JSON document: say is silent, and ask goes to standard error.
    bool isJson = false;
    // Questions are asked although standard input is not a terminal.
    bool asksAlways = false;
};
void setStreamUse(const StreamUse& use);
const StreamUse& streamUse();

// Writes the text and a line end to standard output, in the encoding of the locale.
void say(const QString& text);

// The same without the line end, for questions.
void ask(const QString& question);

// Writes bytes to standard output as they are.
void put(const QByteArray& bytes);

// Writes the text and a line end to standard error.
void complain(const QString& text);

// Emphasis repeats what the words say already.
enum class Tone { heading, good, warning, problem };

// The text in bold or colour (ECMA-48: SGR) where the descriptor, standard output or error, is a
// terminal that knows how and NO_COLOR is not set; else as it is.
QString toned(Tone tone, const QString& text, int descriptor);

// One line of standard input without its line end, in the encoding of the locale. Nothing at the
// end of input; of a line longer than 4,096 bytes the rest is dropped. An answer that no terminal
// has echoed is shown after its question; never a secret, which nothing asks for here.
std::optional<QString> readAnswer();

// Standard input is a terminal: a person can answer.
bool isTerminal();

// Whether questions may be asked: at a terminal, and elsewhere when that was asked for.
bool mayAsk();

}  // namespace console

#endif
