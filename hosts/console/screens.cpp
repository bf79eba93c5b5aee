#include "hosts/console/screens.h"

#include "hosts/console/text_layout.h"

#include <algorithm>

namespace console {

namespace {

struct Column {
    const char* heading;
    int width;
};

constexpr Column numberColumn = {"No", 2};
constexpr Column kindColumn = {"Kind", 14};
constexpr Column holderColumn = {"Holder", 21};
constexpr Column issuerColumn = {"Issuer", 19};
constexpr Column endColumn = {"Valid until", 11};
constexpr int daysWidth = 5;
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
    return day.isValid() ? day.toString(Qt::ISODate) : QStringLiteral("unknown");
}

struct ResultSentence {
    int result;
    const char* sentence;
};

template <std::size_t size>
QString sentenceOf(const ResultSentence (&sentences)[size], int result)
{
    const auto* found =
        std::find_if(std::begin(sentences), std::end(sentences),
                     [result](const ResultSentence& entry) { return entry.result == result; });
    return found != std::end(sentences) ? QString::fromUtf8(found->sentence) : QString();
}

}  // namespace

QString certificateTable(const std::vector<CertificateEntry>& entries, QDate today)
{
    QStringList lines;
    lines.append(row(QString::fromUtf8(numberColumn.heading), QString::fromUtf8(kindColumn.heading),
                     QString::fromUtf8(holderColumn.heading),
                     QString::fromUtf8(issuerColumn.heading), QString::fromUtf8(endColumn.heading),
                     QStringLiteral("Days")));
    for (const CertificateEntry& entry : entries) {
        const bool dated = entry.validUntil.isValid();
        lines.append(
            row(QString::number(entry.number), entry.kindName, entry.holder, entry.issuer,
                dated ? dayText(entry.validUntil) : QStringLiteral("-"),
                dated ? QString::number(today.daysTo(entry.validUntil)) : QStringLiteral("-")));
        lines.append(wrapped(entry.verdictText, verdictIndent));
    }
    return lines.join(QLatin1Char('\n'));
}

QString renewalPlan(const CertificateEntry& entry, const QString& authority)
{
    const QString source = authority.isEmpty()
                               ? QStringLiteral("you fetch the certificate from the authority")
                               : QStringLiteral("the request goes to ") + printable(authority);
    if (entry.verdict == Verdict::recovery) {
        return wrapped(QStringLiteral("The %1 certificate that was issued for the waiting key is "
                                      "written onto the card.")
                           .arg(entry.kindName));
    }
    const QString key = entry.pendingKey.isEmpty()
                            ? QStringLiteral("a new key pair is made on the card")
                            : QStringLiteral("the new key that waits on the card is used");
    return wrapped(
        QStringLiteral("To renew number %1 (%2, %3): %4; %5; then the new certificate is "
                       "written onto the card and takes the old one's place.")
            .arg(QString::number(entry.number), entry.kindName, entry.holder, key, source));
}

QString renewalResult(const CertificateEntry& before, const CertificateEntry& after)
{
    const QString old = before.verdict == Verdict::recovery ? QStringLiteral("no certificate")
                                                            : dayText(before.validUntil);
    return QStringLiteral("Renewed: %1 certificate of %2\n"
                          "    valid until, before:  %3\n"
                          "    valid until, after:   %4")
        .arg(after.kindName, after.holder, old, dayText(after.validUntil));
}

QString stopMessage(const Stop& stop, const QString& logPlace)
{
    QStringList paragraphs = {wrapped(QString::fromUtf8(entryOf(stop.code()).meaning))};
    if (!stop.detail().isEmpty()) {
        paragraphs.append(wrapped(stop.detail(), 2));
    }
    if (!stop.nextStep().isEmpty()) {
        paragraphs.append(wrapped(stop.nextStep()));
    }
    if (!logPlace.isEmpty() && stop.code() != ExitCode::declined) {
        paragraphs.append(QStringLiteral("Log: ") + logPlace);
    }
    return paragraphs.join(QLatin1Char('\n'));
}

QString inventorySentence(int result)
{
    static constexpr ResultSentence sentences[] = {
        {inventory_result::nothingRenewable, "No certificate on the card can be renewed."},
        {inventory_result::nothingOnCard, "The card holds neither certificates nor waiting keys."},
        {inventory_result::noFreeKeyLabel,
         "No free name for a new key could be found; try again in a moment."},
        {inventory_result::cardError, "The card reported an error."},
        {inventory_result::cardNotSupported, "The card is not supported."},
        {inventory_result::pinLength, "The PIN has not exactly eight characters."},
    };
    return sentenceOf(sentences, result);
}

QString cardCheckSentence(int result)
{
    static constexpr ResultSentence sentences[] = {
        {card_verification::serialNumberUnknown, "The card's serial number cannot be read."},
        {card_verification::noLongerSupported, "This card model (1201...) is no longer supported."},
        {card_verification::noLongerRenewable, "Certificates on this card can no longer be "
                                               "renewed, or the card does not say what it is."},
        {card_verification::notActivated, "The card is not activated yet."},
        {card_verification::activationUnknown, "The card does not tell whether it is activated."},
        {card_verification::noSession, "No session with the card could be opened."},
        {card_verification::noModule, "No PKCS#11 module could be found for the card."},
        {card_verification::unknownAtr, "The card's type is not in the ATR table."},
        {card_verification::noReader, "No reader is chosen."},
    };
    return sentenceOf(sentences, result);
}

}  // namespace console
