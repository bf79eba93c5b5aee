#include "hosts/console/certificate_choice.h"

#include "hosts/console/exit_code.h"
#include "hosts/console/terminal.h"

#include <QStringList>

#include <algorithm>
#include <optional>

namespace console {

namespace {

using Entries = std::vector<CertificateEntry>;

std::optional<CertificateEntry> named(const std::vector<CertificateEntry>& entries,
                                      const QString& name)
{
    const auto found =
        std::find_if(entries.begin(), entries.end(), [&name](const CertificateEntry& entry) {
            return name == QString::number(entry.number) || name == entry.row ||
                   (!entry.renewalId.isEmpty() && name == entry.renewalId);
        });
    return found != entries.end() ? std::make_optional(*found) : std::nullopt;
}

bool meansAll(const QString& answer)
{
    return answer.compare(QLatin1String("all"), Qt::CaseInsensitive) == 0 ||
           answer.compare(QLatin1String("tutti"), Qt::CaseInsensitive) == 0;
}

Entries askFor(const Entries& entries)
{
    Entries due = dueCertificates(entries);
    for (;;) {
        if (due.size() > 1) {
            ask(Text("Quale certificato? Il numero, \"tutti\", o una riga vuota per uscire: ",
                     "Which certificate? Its number, \"all\", or an empty line to leave: "));
        } else {
            ask(Text("Quale certificato? Il suo numero, o una riga vuota per uscire: ",
                     "Which certificate? Its number, or an empty line to leave: "));
        }
        const std::optional<QString> answer = readAnswer();
        if (!answer || answer->trimmed().isEmpty()) {
            throw Stop(ExitCode::declined);
        }
        if (due.size() > 1 && meansAll(answer->trimmed())) {
            return due;
        }
        const auto entry = named(entries, answer->trimmed());
        if (entry && entry->canBeChosen()) {
            return {*entry};
        }
        say(entry ? Text("Numero %1: %2.", "Number %1 is %2.")
                        .arg(QString::number(entry->number), entry->verdictText)
                  : Text("La tabella non ha questo numero.", "The table has no such number.")
                        .string());
    }
}

}  // namespace

Entries dueCertificates(const Entries& entries)
{
    Entries due;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(due),
                 [](const CertificateEntry& entry) { return entry.verdict == Verdict::toRenew; });
    return due;
}

Entries chooseCertificates(const Entries& entries, const QString& wanted, bool mayAsk)
{
    if (!wanted.isEmpty()) {
        const auto entry = named(entries, wanted);
        if (!entry) {
            throw Stop(ExitCode::choiceNeeded,
                       Text("Nessun certificato sulla carta si chiama \"%1\".",
                            "No certificate on the card is called \"%1\".")
                           .arg(wanted));
        }
        if (!entry->canBeChosen()) {
            throw Stop(ExitCode::nothingToRenew,
                       Text("Certificato %1: %2.", "Certificate %1: %2.")
                           .arg(QString::number(entry->number), entry->verdictText));
        }
        return {*entry};
    }

    Entries choices;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(choices),
                 [](const CertificateEntry& entry) { return entry.canBeChosen(); });
    if (choices.empty()) {
        throw Stop(ExitCode::nothingToRenew);
    }
    if (choices.size() == 1) {
        return choices;
    }
    if (!mayAsk) {
        throw Stop(ExitCode::choiceNeeded, Text("I certificati da rinnovare sono più d'uno.",
                                                "Several certificates can be renewed."));
    }
    return askFor(entries);
}

bool confirmed(const QString& question)
{
    static const QStringList yes = {QStringLiteral("y"), QStringLiteral("yes"), QStringLiteral("s"),
                                    QStringLiteral("si"), QStringLiteral("s\u00ec")};
    ask(question + Text(" [s/N] ", " [y/N] ").string());
    const std::optional<QString> answer = readAnswer();
    return answer && yes.contains(answer->trimmed().toLower());
}

void requireConfirmation(const Arguments& arguments)
{
    if (arguments.yes) {
        return;
    }
    if (!mayAsk()) {
        throw Stop(ExitCode::confirmationNeeded);
    }
    if (!confirmed(Text("Procedere?", "Go on?"))) {
        throw Stop(ExitCode::declined);
    }
}

}  // namespace console
