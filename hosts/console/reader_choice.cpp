#include "hosts/console/reader_choice.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <QStringList>

#include <algorithm>

namespace console {

namespace {

QString askAmong(const std::vector<ReaderDiagnosis>& readers)
{
    say(Text("Lettori:", "Readers:"));
    for (std::size_t i = 0; i < readers.size(); ++i) {
        const auto& error = readers[i].error;
        say(wrapped(
            QStringLiteral("%1  %2").arg(QString::number(i + 1), printable(readers[i].name)), 2));
        if (error) {
            say(wrapped(printable(error->text), 5));
        }
    }
    for (;;) {
        ask(Text("Quale lettore? Il suo numero, o una riga vuota per uscire: ",
                 "Which reader? Its number, or an empty line to leave: "));
        const std::optional<QString> answer = readAnswer();
        if (!answer || answer->trimmed().isEmpty()) {
            throw Stop(ExitCode::declined);
        }
        bool isNumber = false;
        const int number = answer->trimmed().toInt(&isNumber);
        if (isNumber && number >= 1 && number <= static_cast<int>(readers.size())) {
            return readers[static_cast<std::size_t>(number) - 1].name;
        }
        say(Text("L'elenco non ha questo numero.", "The list has no such number."));
    }
}

QString namesOf(const std::vector<ReaderDiagnosis>& readers)
{
    QStringList names;
    for (const ReaderDiagnosis& reader : readers) {
        names.append(QLatin1Char('"') + printable(reader.name) + QLatin1Char('"'));
    }
    return names.join(QStringLiteral(", "));
}

}  // namespace

QString chooseReader(const Diagnosis& diagnosis)
{
    const std::vector<ReaderDiagnosis>& readers = diagnosis.readers;
    if (readers.empty()) {
        return {};
    }
    if (readers.size() == 1) {
        return readers.front().name;
    }
    std::vector<ReaderDiagnosis> usable;
    std::copy_if(readers.begin(), readers.end(), std::back_inserter(usable),
                 [](const ReaderDiagnosis& reader) { return !reader.error; });
    if (usable.size() == 1) {
        return usable.front().name;
    }
    if (mayAsk()) {
        return askAmong(readers);
    }
    throw Stop(ExitCode::noReader,
               (usable.empty() ? Text("In nessuno dei lettori c'è una carta utilizzabile: %1.",
                                      "None of the readers holds a card that can be used: %1.")
                               : Text("I lettori con una carta utilizzabile sono più d'uno: %1.",
                                      "Several readers hold a card that can be used: %1."))
                   .arg(namesOf(usable.empty() ? readers : usable)));
}

QString chooseReader(const QString& wanted)
{
    if (!wanted.isEmpty()) {
        return wanted;
    }
    const Diagnosis diagnosis = diagnoseReaders();
    return diagnosis.isTold ? chooseReader(diagnosis) : QString();
}

}  // namespace console
