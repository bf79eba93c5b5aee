#ifndef TARVELOQT_CARD_INTEGER_QUESTION_H
#define TARVELOQT_CARD_INTEGER_QUESTION_H

#include "session/console.h"

#include <QString>

#include <functional>

namespace card {

// A question on the console whose answer is a number from 0 to highest.
struct IntegerQuestion {
    QString text;  // lines, each with its "\n"
    int highest;
    session::console::Echo echo;
};

// Asks until an answer is not invalid for Qt's integer validator and `accepts` takes it. Answers
// that are not a number yet, an empty line among them, are not invalid. Returns the line as read.
QString ask(const IntegerQuestion& question,
            const std::function<bool(const QString&)>& accepts = nullptr);

}  // namespace card

#endif
