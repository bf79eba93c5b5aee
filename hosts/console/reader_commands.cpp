#include "hosts/console/reader_commands.h"

#include "hosts/console/json_answer.h"
#include "hosts/console/library_view.h"
#include "hosts/console/reader_answer.h"
#include "hosts/console/reader_findings.h"
#include "hosts/console/record_store.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <algorithm>

namespace console {

namespace {

// Of a renewal's 64 digits as many as tell it from others; --renewal takes any number of them.
constexpr int shownDigits = 12;
constexpr int indent = 4;

QString stateText(RecordState state)
{
    switch (state) {
    case RecordState::requested:
        return Text("richiesta fatta, non ancora consegnata", "requested, not yet handed over");
    case RecordState::submitted:
        return Text("consegnata all'autorità, senza risposta",
                    "handed to the authority, no answer yet");
    case RecordState::deferred:
        return Text("l'autorità chiede di tornare più tardi",
                    "the authority asks to come back later");
    case RecordState::issued:
        break;
    }
    return Text("certificato emesso, da installare", "certificate issued, to be installed");
}

void insertAll(QJsonObject& answer, const QJsonObject& fields)
{
    for (auto field = fields.constBegin(); field != fields.constEnd(); ++field) {
        answer.insert(field.key(), field.value());
    }
}

void sayUnlessEmpty(const QString& text)
{
    if (!text.isEmpty()) {
        say(text);
    }
}

// With the time since when it waits as it does.
QJsonObject waitingRenewal(const RenewalRecord& record)
{
    QJsonObject object = renewalObject(record);
    object.insert(QStringLiteral("changedAt"), record.changedAt.toString(Qt::ISODate));
    return object;
}

QString renewalScreen(const RenewalRecord& record)
{
    const QString since =
        record.changedAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"));
    return QStringLiteral("  %1  %2, %3")
               .arg(record.publicKeyDigest.left(shownDigits), kindName(record.kind),
                    printable(record.replaces.holder)) +
           QLatin1Char('\n') +
           wrapped(Text("%1, dal %2", "%1, since %2").arg(stateText(record.state), since), indent);
}

// A store that cannot be trusted must not hide the card: it is told, and the rest goes on.
RecordListing keptRecords()
{
    try {
        return RecordStore(RecordStore::userFolder()).list();
    } catch (const Stop& stop) {
        return {{}, {stop}};
    }
}

void showRenewals(QJsonObject& answer)
{
    const RecordListing listing = keptRecords();
    QJsonArray renewals;
    say(listing.records.empty()
            ? Text("\nNessun rinnovo è rimasto a metà.", "\nNo renewal waits to be finished.")
            : Text("\nRinnovi da completare (tarvelo-renew resume):",
                   "\nRenewals to be finished (tarvelo-renew resume):"));
    for (const RenewalRecord& record : listing.records) {
        renewals.append(waitingRenewal(record));
        say(renewalScreen(record));
    }
    QJsonArray complaints;
    for (const Stop& complaint : listing.complaints) {
        complaints.append(complaint.detail());
        complain(wrapped(printable(complaint.detail())));
    }
    answer.insert(QStringLiteral("renewals"), renewals);
    answer.insert(QStringLiteral("renewalComplaints"), complaints);
}

// Null when there is none, or none was named and several can be used.
const ReaderDiagnosis* chosenReader(const Diagnosis& diagnosis, const QString& wanted)
{
    if (!wanted.isEmpty()) {
        return diagnosis.find(wanted);
    }
    if (diagnosis.readers.size() == 1) {
        return &diagnosis.readers.front();
    }
    const ReaderDiagnosis* usable = nullptr;
    for (const ReaderDiagnosis& reader : diagnosis.readers) {
        if (!reader.error && usable != nullptr) {
            return nullptr;
        }
        usable = reader.error ? usable : &reader;
    }
    return usable;
}

QString missingReaderSentence(const Diagnosis& diagnosis, const QString& wanted)
{
    if (!wanted.isEmpty()) {
        return Text("Il lettore non c'è: %1", "The reader is not there: %1").arg(printable(wanted));
    }
    if (diagnosis.readers.empty()) {
        return Text("Nessun lettore trovato.", "No reader was found.");
    }
    const auto usable =
        std::count_if(diagnosis.readers.begin(), diagnosis.readers.end(),
                      [](const ReaderDiagnosis& reader) { return !reader.error.has_value(); });
    return usable > 0 ? Text("Più lettori hanno una carta utilizzabile: indicarne uno con "
                             "--reader; tarvelo-renew readers li elenca.",
                             "Several readers hold a card that can be used: name one with "
                             "--reader; tarvelo-renew readers lists them.")
                      : Text("Nessuno dei lettori ha una carta utilizzabile; tarvelo-renew "
                             "readers dice il perché.",
                             "None of the readers holds a card that can be used; tarvelo-renew "
                             "readers tells why.");
}

}  // namespace

void showReaders(const Arguments& /*arguments*/, QJsonObject& answer)
{
    const Diagnosis diagnosis = lookAtReaders({});
    insertAll(answer, surroundingsObject(diagnosis));
    QJsonArray readers;
    for (const ReaderDiagnosis& reader : diagnosis.readers) {
        readers.append(readerObject(reader));
    }
    answer.insert(QStringLiteral("readers"), readers);

    QStringList paragraphs;
    for (const ReaderDiagnosis& reader : diagnosis.readers) {
        paragraphs.append(readerScreen(reader));
    }
    if (paragraphs.isEmpty()) {
        paragraphs.append(Text("Nessun lettore trovato.", "No reader was found."));
    }
    paragraphs.append(mendingScreen(findingsOf(diagnosis, {}).surroundings));
    paragraphs.removeAll(QString());
    say(paragraphs.join(QStringLiteral("\n\n")));
}

void showStatus(const Arguments& arguments, QJsonObject& answer)
{
    const QString wanted = arguments.reader.isEmpty() ? configuredReader() : arguments.reader;
    const Diagnosis diagnosis = lookAtReaders(wanted);
    const ReaderDiagnosis* reader = chosenReader(diagnosis, wanted);
    answer.insert(QStringLiteral("isDescribed"), diagnosis.isTold);
    answer.insert(QStringLiteral("reader"),
                  reader != nullptr ? QJsonValue(readerObject(*reader)) : QJsonValue());
    say(reader != nullptr ? readerScreen(*reader)
                          : wrapped(missingReaderSentence(diagnosis, wanted)));
    showRenewals(answer);
    if (reader == nullptr && !arguments.reader.isEmpty()) {
        throw Stop(ExitCode::noReader, missingReaderSentence(diagnosis, wanted));
    }
}

void explainAtr(const Arguments& arguments, QJsonObject& answer)
{
    const std::optional<Diagnosis> diagnosis = diagnoseAtr(arguments.atr);
    if (!diagnosis) {
        throw Stop(ExitCode::usage,
                   Text("Non è un ATR: %1", "This is no ATR: %1").arg(printable(arguments.atr)),
                   Text("Dare da 2 a 33 byte in esadecimale, come li mostra tarvelo-renew readers.",
                        "Give 2 to 33 bytes in hexadecimal, as tarvelo-renew readers shows them."));
    }
    insertAll(answer, tableObject(*diagnosis));
    const ReaderDiagnosis card =
        diagnosis->readers.empty() ? ReaderDiagnosis() : diagnosis->readers.front();
    answer.insert(QStringLiteral("atr"), textOrNull(card.atr));
    answer.insert(QStringLiteral("entry"), entryObject(card.entry));

    const std::vector<Finding> surroundings = findingsOf(*diagnosis, {}).surroundings;
    sayUnlessEmpty(mendingScreen(surroundings));
    const auto tableFault =
        std::find_if(surroundings.begin(), surroundings.end(), [](const Finding& finding) {
            return finding.id == FindingId::tableUnreadable;
        });
    if (tableFault != surroundings.end()) {
        throw Stop(ExitCode::fileFailed, tableFault->what(), tableFault->cure());
    }
    if (card.entry.match == MatchReason::none) {
        throw Stop(ExitCode::unknownAtr);
    }
    sayUnlessEmpty(entryScreen(card.entry));
}

}  // namespace console
