#include "card/reader_choice.h"

#include "card/card_access.h"
#include "card/integer_question.h"

#include <QStringList>

namespace card {

namespace {

// parts: the readers' names and a last, empty part, which can be chosen but is not shown.
QString askForReader(const QStringList& parts)
{
    IntegerQuestion question{QStringLiteral("Selezionare lettore:\n"), parts.size() - 1,
                             session::console::Echo::shown};
    for (int index = parts.size() - 2; index >= 0; --index) {
        question.text +=
            QString::number(index) + QStringLiteral(") ") + parts.at(index) + QLatin1Char('\n');
    }
    // The validator lets numbers pass that may yet become valid ones, such as 5 of 0 to 2.
    const QString answer =
        ask(question, [&parts](const QString& line) { return line.toInt() < parts.size(); });
    return parts.at(answer.toInt());
}

void storeReader(RenewContext& context, const QString& reader)
{
    RenewRecord settings = context.value(renew_context::settingsRow);
    settings.insert(renew_context::reader, reader);
    context.insert(renew_context::settingsRow, settings);
}

}  // namespace

bool chooseReader(RenewContext& context, const QString& reader, session::Log& log)
{
    if (!reader.isEmpty()) {
        storeReader(context, reader);
        return true;
    }
    const auto names = readerNames();
    if (!names) {
        log.line(QStringLiteral("Nessun lettore trovato..."), session::LineEnd::flush);
        return false;
    }
    const QStringList parts = names->split(QLatin1Char('|'));
    QString chosen;
    if (parts.size() == 2) {
        chosen = parts.first();
        log.line(QStringLiteral("Lettore in uso: ") + chosen, session::LineEnd::flush);
    } else {
        chosen = askForReader(parts);
    }
    storeReader(context, QString::fromLatin1(chosen.toLocal8Bit()));
    return true;
}

}  // namespace card
