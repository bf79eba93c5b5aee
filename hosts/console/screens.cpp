#include "hosts/console/screens.h"

#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <unistd.h>

#include <algorithm>

namespace console {

namespace {

struct Column {
    Text heading;
    int width;
};

constexpr Column numberColumn = {{"N.", "No"}, 2};
constexpr Column kindColumn = {{"Tipo", "Kind"}, 14};
constexpr Column holderColumn = {{"Titolare", "Holder"}, 21};
constexpr Column issuerColumn = {{"Emittente", "Issuer"}, 19};
constexpr Column endColumn = {{"Valido fino", "Valid until"}, 11};
constexpr Text daysHeading = {"Giorni", "Days"};
constexpr int daysWidth = 7;
constexpr int verdictIndent = 4;

QString row(const QString& number, const QString& kind, const QString& holder,
            const QString& issuer, const QString& end, const QString& days)
{
    return fitted(number, numberColumn.width) + QStringLiteral("  ") +
           fitted(kind, kindColumn.width) + QLatin1Char(' ') + fitted(holder, holderColumn.width) +
           QLatin1Char(' ') + fitted(issuer, issuerColumn.width) + QLatin1Char(' ') +
           fitted(end, endColumn.width) + days.rightJustified(daysWidth);
}

QString dayText(QDate day)
{
    return day.isValid() ? day.toString(Qt::ISODate) : Text("ignota", "unknown").string();
}

// Enough to name a kept renewal by.
constexpr int shownDigits = 8;

QString stateText(RecordState state)
{
    switch (state) {
    case RecordState::requested:
        return Text("richiesta fatta", "request made");
    case RecordState::submitted:
        return Text("inviata all'autorità", "sent to the authority");
    case RecordState::deferred:
        return Text("l'autorità chiede di tornare più tardi",
                    "the authority asks to come back later");
    case RecordState::issued:
        break;
    }
    return Text("certificato arrivato, da installare", "certificate here, to be installed");
}

struct ResultSentence {
    int result;
    Text sentence;
};

template <std::size_t size>
QString sentenceOf(const ResultSentence (&sentences)[size], int result)
{
    const auto* found =
        std::find_if(std::begin(sentences), std::end(sentences),
                     [result](const ResultSentence& entry) { return entry.result == result; });
    return found != std::end(sentences) ? found->sentence.string() : QString();
}

}  // namespace

QString certificateTable(const std::vector<CertificateEntry>& entries, QDate today)
{
    QStringList lines;
    lines.append(row(numberColumn.heading, kindColumn.heading, holderColumn.heading,
                     issuerColumn.heading, endColumn.heading, daysHeading));
    for (const CertificateEntry& entry : entries) {
        const bool dated = entry.validUntil.isValid();
        lines.append(
            row(QString::number(entry.number), entry.kindName, entry.holder, entry.issuer,
                dated ? dayText(entry.validUntil) : QStringLiteral("-"),
                dated ? QString::number(today.daysTo(entry.validUntil)) : QStringLiteral("-")));
        const QString verdict = wrapped(entry.verdictText, verdictIndent);
        lines.append(entry.canBeChosen() ? toned(Tone::warning, verdict, STDOUT_FILENO) : verdict);
    }
    return lines.join(QLatin1Char('\n'));
}

QString renewalResult(const CertificateEntry& before, const CertificateEntry& after)
{
    const QString old = before.verdict == Verdict::recovery
                            ? Text("nessun certificato", "no certificate").string()
                            : dayText(before.validUntil);
    return Text("Rinnovato: certificato di %1 di %2\n"
                "    valido fino, prima:  %3\n"
                "    valido fino, dopo:   %4",
                "Renewed: %1 certificate of %2\n"
                "    valid until, before:  %3\n"
                "    valid until, after:   %4")
        .arg(after.kindName, after.holder, old, dayText(after.validUntil));
}

QString renewalLine(const RenewalRecord& record)
{
    return Text("%1  %2, %3: %4 (dal %5)", "%1  %2, %3: %4 (since %5)")
        .arg(record.publicKeyDigest.left(shownDigits), kindName(record.kind),
             printable(record.replaces.holder), stateText(record.state),
             record.requestedAt.date().toString(Qt::ISODate));
}

QString stopMessage(const Stop& stop, const QString& logPlace, int descriptor)
{
    const bool isFailure =
        stop.code() != ExitCode::declined && stop.code() != ExitCode::comeBackLater;
    const Tone tone = isFailure ? Tone::problem : Tone::warning;
    QStringList paragraphs = {toned(tone, wrapped(entryOf(stop.code()).meaning), descriptor)};
    if (!stop.detail().isEmpty()) {
        paragraphs.append(wrapped(stop.detail(), 2));
    }
    if (!stop.nextStep().isEmpty()) {
        paragraphs.append(wrapped(stop.nextStep()));
    }
    if (!logPlace.isEmpty() && stop.code() != ExitCode::declined) {
        paragraphs.append(Text("Registro: %1", "Log: %1").arg(logPlace));
    }
    return paragraphs.join(QLatin1Char('\n'));
}

QString inventorySentence(int result)
{
    static constexpr ResultSentence sentences[] = {
        {inventory_result::nothingRenewable,
         {"Nessun certificato sulla carta può essere rinnovato.",
          "No certificate on the card can be renewed."}},
        {inventory_result::nothingOnCard,
         {"Sulla carta non ci sono né certificati né chiavi in attesa.",
          "The card holds neither certificates nor waiting keys."}},
        {inventory_result::noFreeKeyLabel,
         {"Non si è trovato un nome libero per una nuova chiave; riprovare fra poco.",
          "No free name for a new key could be found; try again in a moment."}},
        {inventory_result::cardError,
         {"La carta ha segnalato un errore.", "The card reported an error."}},
        {inventory_result::cardNotSupported,
         {"La carta non è supportata.", "The card is not supported."}},
        {inventory_result::pinLength,
         {"Il PIN non ha otto caratteri esatti.", "The PIN has not exactly eight characters."}},
    };
    return sentenceOf(sentences, result);
}

QString cardCheckSentence(int result)
{
    static constexpr ResultSentence sentences[] = {
        {card_verification::serialNumberUnknown,
         {"Impossibile leggere il numero di serie della carta.",
          "The card's serial number cannot be read."}},
        {card_verification::noLongerSupported,
         {"Questo modello di carta (1201...) non è più supportato.",
          "This card model (1201...) is no longer supported."}},
        {card_verification::noLongerRenewable,
         {"I certificati di questa carta non sono più rinnovabili, o la carta non dice che cos'è.",
          "Certificates on this card can no longer be renewed, or the card does not say what it "
          "is."}},
        {card_verification::notActivated,
         {"La carta non è ancora attivata.", "The card is not activated yet."}},
        {card_verification::activationUnknown,
         {"La carta non dice se è attivata.", "The card does not tell whether it is activated."}},
        {card_verification::noSession,
         {"Impossibile aprire una sessione con la carta.",
          "No session with the card could be opened."}},
        {card_verification::noModule,
         {"Nessun modulo PKCS#11 trovato per la carta.",
          "No PKCS#11 module could be found for the card."}},
        {card_verification::unknownAtr,
         {"Il tipo di carta non è nella tabella degli ATR.",
          "The card's type is not in the ATR table."}},
        {card_verification::noReader, {"Nessun lettore è scelto.", "No reader is chosen."}},
    };
    return sentenceOf(sentences, result);
}

}  // namespace console
