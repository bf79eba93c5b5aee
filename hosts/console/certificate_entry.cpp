#include "hosts/console/certificate_entry.h"

#include "hosts/console/distinguished_name.h"
#include "hosts/console/language.h"
#include "hosts/console/text_layout.h"

#include <QStringList>

#include <algorithm>

namespace console {

namespace keys = renew_context;

namespace {

// The library renews with 91 days left and fewer.
constexpr int renewalPeriodDays = 91;

constexpr int descriptorIssuerField = 1;

struct KindRow {
    Kind kind;
    const QString& prefix;
    Text name;
};

const std::vector<KindRow>& kindRows()
{
    static const std::vector<KindRow> rowsByOrder = {
        {Kind::authentication, keys::autRowPrefix, Text("autenticazione", "authentication")},
        {Kind::signature, keys::praRowPrefix, Text("firma", "signature")},
        {Kind::cns, keys::cnsRowPrefix, Text("CNS", "CNS")},
    };
    return rowsByOrder;
}

Verdict verdictOf(const RenewRecord& record)
{
    if (record.value(keys::action) == keys::recoverCertificate) {
        return Verdict::recovery;
    }
    const QString mode = record.value(keys::renewalMode);
    if (mode.isEmpty()) {
        return Verdict::toRenew;
    }
    if (mode == keys::notRenewable) {
        return Verdict::otherAuthority;
    }
    if (mode == keys::notYetDue) {
        return Verdict::notYetDue;
    }
    if (mode == keys::autExpired || mode == keys::praExpired || mode == keys::cnsExpired) {
        return Verdict::expired;
    }
    return Verdict::otherReason;
}

QString sentenceFor(const CertificateEntry& entry, const RenewRecord& record)
{
    switch (entry.verdict) {
    case Verdict::toRenew: {
        QString text = Text("da rinnovare", "to be renewed");
        const QDate end = dateOf(entry.expectedEnd);
        if (end.isValid()) {
            text += Text("; poi valido fino al %1", "; afterwards valid until %1")
                        .arg(end.toString(Qt::ISODate));
        }
        if (!entry.pendingKey.isEmpty()) {
            text += Text("; già iniziato, la nuova chiave attende sulla carta",
                         "; begun earlier, its new key waits on the card")
                        .string();
        }
        return text;
    }
    case Verdict::notYetDue:
        return entry.validUntil.isValid()
                   ? Text("non ancora in scadenza: rinnovabile dal %1",
                          "not yet due: can be renewed from %1")
                         .arg(entry.validUntil.addDays(-renewalPeriodDays).toString(Qt::ISODate))
                   : Text("non ancora in scadenza", "not yet due").string();
    case Verdict::expired:
        return Text("scaduto: non più rinnovabile", "expired: can no longer be renewed");
    case Verdict::otherAuthority:
        return Text("non rinnovabile: lo sono solo i certificati emessi da %1",
                    "cannot be renewed: only certificates issued by %1 can")
            .arg(record.value(keys::issuerDN).split(QLatin1Char('-')).join(QStringLiteral(", ")));
    case Verdict::recovery:
        return Text("rinnovo interrotto: una chiave attende il suo certificato",
                    "a renewal was interrupted: a key waits for its certificate");
    case Verdict::otherReason:
        break;
    }
    return printable(record.value(keys::renewalMode));
}

CertificateEntry entryFor(const KindRow& kindRow, int number, const RenewRecord& record,
                          const EntrySources& sources)
{
    CertificateEntry entry;
    entry.row = keys::rowKey(kindRow.prefix, number);
    entry.kind = kindRow.kind;
    entry.kindName = record.value(keys::renewalLabel) == keys::roleCertificate
                         ? Text("firma di ruolo", "role signature").string()
                         : kindRow.name.string();
    entry.verdict = verdictOf(record);
    entry.holder = printable(displayName(record.value(keys::subjectDN)));
    QString issuer = record.value(keys::issuerDN);
    if (entry.verdict == Verdict::otherAuthority) {
        const QStringList fields = sources.descriptor(entry.kind, number).split(QLatin1Char('#'));
        issuer = fields.value(descriptorIssuerField);
    }
    entry.issuerDN = issuer;
    entry.issuer = printable(displayName(issuer));
    entry.serialNumber = record.value(keys::serialNumber);
    entry.renewalId = record.value(keys::renewalId);
    entry.pendingKey = record.value(keys::pendingKey);
    entry.policy = record.value(keys::policy);
    entry.validUntil = dateOf(record.value(keys::notAfter));
    if (entry.verdict == Verdict::toRenew) {
        RenewRecord copy = record;
        entry.expectedEnd = sources.expectedEnd(copy);
    }
    entry.verdictText = sentenceFor(entry, record);
    for (QString* text : {&entry.holder, &entry.issuer}) {
        if (text->isEmpty()) {
            *text = QStringLiteral("-");
        }
    }
    return entry;
}

}  // namespace

QString kindName(Kind kind)
{
    const auto& rows = kindRows();
    const auto row = std::find_if(rows.begin(), rows.end(), [kind](const KindRow& candidate) {
        return candidate.kind == kind;
    });
    return row != rows.end() ? row->name.string() : QString();
}

QDate dateOf(const QString& text)
{
    return QDate::fromString(text.left(8), QStringLiteral("yyyyMMdd"));
}

std::vector<CertificateEntry> certificateEntries(const RenewContext& context,
                                                 const EntrySources& sources)
{
    std::vector<CertificateEntry> entries;
    for (const KindRow& kindRow : kindRows()) {
        std::vector<int> numbers;
        for (auto row = context.constBegin(); row != context.constEnd(); ++row) {
            bool isNumber = false;
            const int number = row.key().mid(kindRow.prefix.size()).toInt(&isNumber);
            if (row.key().startsWith(kindRow.prefix) && isNumber) {
                numbers.push_back(number);
            }
        }
        std::sort(numbers.begin(), numbers.end());
        for (const int number : numbers) {
            const RenewRecord record = context.value(keys::rowKey(kindRow.prefix, number));
            entries.push_back(entryFor(kindRow, number, record, sources));
            entries.back().number = static_cast<int>(entries.size());
        }
    }
    return entries;
}

}  // namespace console
