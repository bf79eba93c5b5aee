#include "hosts/console/opened_card.h"

#include "hosts/console/json_answer.h"
#include "hosts/console/screens.h"
#include "hosts/console/terminal.h"
#include "hosts/console/text_layout.h"

#include <unistd.h>

#include <algorithm>

namespace console {

OpenedCard openCard(CardWork& work, QJsonObject& answer)
{
    OpenedCard card{work, work.chooseReader(), {}};
    say(Text("Lettore: %1", "Reader:  %1").arg(printable(card.reader)));
    work.givePin();
    say(Text("PIN:     accettato", "PIN:     accepted"));
    card.identity = work.checkCard();
    say(Text("Carta:   %1 %2, numero di serie %3", "Card:    %1 %2, serial number %3")
            .arg(card.identity.manufacturer, card.identity.model, card.identity.serialNumber));
    answer.insert(QStringLiteral("card"), cardObject(card.reader, card.identity));
    return card;
}

void showCertificates(const std::vector<CertificateEntry>& entries, const QString& heading,
                      QJsonObject& answer)
{
    const QDate today = QDate::currentDate();
    say(QLatin1Char('\n') + toned(Tone::heading, heading, STDOUT_FILENO) + QStringLiteral("\n\n") +
        (entries.empty() ? Text("nessuno", "none").string() : certificateTable(entries, today)) +
        QLatin1Char('\n'));
    answer.insert(QStringLiteral("certificates"), certificateArray(entries, today));
}

const CertificateEntry* sameCertificate(const CertificateEntry& wanted,
                                        const std::vector<CertificateEntry>& entries)
{
    const auto found =
        std::find_if(entries.begin(), entries.end(), [&wanted](const CertificateEntry& entry) {
            return entry.kind == wanted.kind && entry.issuerDN == wanted.issuerDN &&
                   entry.serialNumber == wanted.serialNumber;
        });
    return found != entries.end() ? &*found : nullptr;
}

const CertificateEntry& renewedEntry(const CertificateEntry& before, QDate validUntil,
                                     const std::vector<CertificateEntry>& earlier,
                                     const std::vector<CertificateEntry>& now)
{
    const auto found = std::find_if(now.begin(), now.end(), [&](const CertificateEntry& entry) {
        return entry.kind == before.kind && entry.validUntil == validUntil &&
               entry.verdict != Verdict::recovery && sameCertificate(entry, earlier) == nullptr;
    });
    if (found == now.end()) {
        throw Stop(ExitCode::notSeenOnCard);
    }
    return *found;
}

}  // namespace console
