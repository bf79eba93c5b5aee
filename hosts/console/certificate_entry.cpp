#include "hosts/console/certificate_entry.h"

#include "hosts/console/distinguished_name.h"
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
    const char* name;
};

const std::vector<KindRow>& kindRows()
{
    static const std::vector<KindRow> rowsByOrder = {
        {Kind::authentication, keys::autRowPrefix, "authentication"},
        {Kind::signature, keys::praRowPrefix, "signature"},
        {Kind::cns, keys::cnsRowPrefix, "CNS"},
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
        QString text = QStringLiteral("to be renewed");
        const QDate end = dateOf(entry.expectedEnd);
        if (end.isValid()) {
            text += QStringLiteral("; afterwards valid until ") + end.toString(Qt::ISODate);
        }
        if (!entry.pendingKey.isEmpty()) {
            text += QStringLiteral("; begun earlier, its new key waits on the card");
        }
        return text;
    }
    case Verdict::notYetDue:
        return entry.validUntil.isValid()
                   ? QStringLiteral("not yet due: can be renewed from ") +
                         entry.validUntil.addDays(-renewalPeriodDays).toString(Qt::ISODate)
                   : QStringLiteral("not yet due");
    case Verdict::expired:
        return QStringLiteral("expired: can no longer be renewed");
    case Verdict::otherAuthority:
        return QStringLiteral("cannot be renewed: only certificates issued by ") +
               record.value(keys::issuerDN).split(QLatin1Char('-')).join(QStringLiteral(", ")) +
               QStringLiteral(" can");
    case Verdict::recovery:
        return QStringLiteral("a renewal was interrupted: a key waits for its certificate");
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
                         ? QStringLiteral("role signature")
                         : QString::fromUtf8(kindRow.name);
    entry.verdict = verdictOf(record);
    entry.holder = printable(displayName(record.value(keys::subjectDN)));
    QString issuer = record.value(keys::issuerDN);
    if (entry.verdict == Verdict::otherAuthority) {
        const QStringList fields = sources.descriptor(entry.kind, number).split(QLatin1Char('#'));
        issuer = fields.value(descriptorIssuerField);
    }
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
