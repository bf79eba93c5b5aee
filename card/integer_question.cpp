#include "card/integer_question.h"

#include <QIntValidator>
#include <QLocale>

namespace card {

QString ask(const IntegerQuestion& question, const std::function<bool(const QString&)>& accepts)
{
    QIntValidator validator(0, question.highest, nullptr);
    // Digits alone: the user's locale would take separators between groups of them.
    QLocale locale = QLocale::c();
    locale.setNumberOptions(QLocale::RejectGroupSeparator);
    validator.setLocale(locale);

    while (true) {
        QString line = session::console::ask(question.text, question.echo);
        int position = 0;
        if (validator.validate(line, position) != QValidator::Invalid &&
            (!accepts || accepts(line))) {
            return line;
        }
    }
}

}  // namespace card
