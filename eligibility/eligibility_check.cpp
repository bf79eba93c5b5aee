#include "eligibility/eligibility_check.h"

#include "inventory/card_stores.h"
#include "inventory/validity_dates.h"

#include <algorithm>

namespace eligibility {

namespace {

namespace names = renew_context;
using inventory::CertificateDescriptor;
using session::LineEnd;

// A certificate may be renewed from the 91st day before its last to the day before its last.
constexpr qint64 renewalPeriodDays = 92;

// The value of the subject's serialNumber attribute without the prefix that the kind's issuers put
// before the fiscal code; null when the subject has no such attribute.
QString fiscalCodeOf(const QString& subject, const KindRule& rule)
{
    const int start = subject.indexOf(QStringLiteral("2.5.4.5="));
    if (start < 0) {
        return {};
    }
    QString value = subject.mid(start, rule.fiscalCodeSpan);
    const QString prefix = value.left(rule.fiscalCodePrefix);
    value.remove(prefix);
    value.replace(QLatin1Char('='), QLatin1Char(':'));
    // Never null: the attribute is there, whatever is left of it.
    return value.isNull() ? QStringLiteral("") : value;
}

QString renewalIdOf(const QString& fiscalCode, const CertificateDescriptor& descriptor,
                    const KindRule& rule)
{
    const QString colon(QLatin1Char(':'));
    QString pendingKey = descriptor.field(rule.pendingKeyField);
    pendingKey.remove(colon);
    return fiscalCode + colon + descriptor.iut() + colon + pendingKey + colon +
           descriptor.serialNumber();
}

class EligibilityCheck {
public:
    EligibilityCheck(RenewContext& context, const KindRule& rule, const CheckInput& input,
                     const Surroundings& surroundings, const CheckOutput& output, session::Log& log)
        : m_context(context)
        , m_rule(rule)
        , m_input(input)
        , m_surroundings(surroundings)
        , m_output(output)
        , m_log(log)
    {
    }

    void run()
    {
        if (m_input.pendingKeyFlag != 0 && m_input.count == 0) {
            writeRecoveryRecord();
            return;
        }
        const int readable = std::min(m_input.count, m_rule.storeCapacity);
        for (int number = 1; number <= readable; ++number) {
            examine(number);
        }
    }

private:
    void writeRecoveryRecord()
    {
        const RecoveryRule& recovery = m_rule.recovery;
        RenewRecord record;
        record.insert(names::renewalLabel, recovery.renewalLabel);
        if (!recovery.renewalMode.isNull()) {
            record.insert(names::renewalMode, recovery.renewalMode);
        }
        record.insert(names::action, names::recoverCertificate);
        if (recovery.namesPendingKey && !m_input.pendingLabel.isEmpty()) {
            record.insert(names::pendingKey, m_input.pendingLabel);
        }
        record.insert(names::certificateLabel, recovery.certificateLabel);
        if (!recovery.toPay.isNull()) {
            record.insert(names::toPay, recovery.toPay);
        }
        insert(0, record);
        m_log.line(recovery.logLine, LineEnd::newline);
        m_log.line(QStringLiteral("verra' tentato il recupero del certificato da file system.."),
                   LineEnd::blankLine);
    }

    void examine(int number)
    {
        const CertificateDescriptor descriptor(
            inventory::boundedText(m_input.store[number], inventory::storeElementSize));
        Candidate candidate{descriptor, m_surroundings, m_input.pendingLabel, descriptor.subject(),
                            descriptor.policy()};
        RenewRecord record = recordOf(candidate);
        m_rule.prepare(candidate);
        takeFiscalCode(descriptor, record);
        logDescriptor(number, descriptor);

        if (!isIssuerAccepted(descriptor.issuer())) {
            record.insert(names::issuerDN, m_rule.authorityList);
            skip(number, record, names::notRenewable, QStringLiteral("Certificati non Rinnovabili"),
                 m_rule.rejectedLogLine);
            return;
        }
        const QString pendingKey = m_rule.usablePendingKey(candidate);
        if (!pendingKey.isEmpty()) {
            m_log.line(QStringLiteral("Chiave Pending ") + m_rule.name + QStringLiteral(": ") +
                           pendingKey,
                       LineEnd::blankLine);
        }
        if (!m_surroundings.expiryCheckSkipped()) {
            const qint64 days =
                m_surroundings.today().daysTo(inventory::leadingDate(descriptor.notAfter()));
            if (days >= renewalPeriodDays) {
                skip(number, record, names::notYetDue, names::notYetDue, m_rule.notYetDueLogLine);
                return;
            }
            // Also a text that is no date: it is no number of days away.
            if (days <= 0) {
                skip(number, record, m_rule.expiredMode, QStringLiteral("Certificati scaduti"),
                     m_rule.expiredMode);
                return;
            }
        }
        offer(number, record, candidate, pendingKey);
    }

    RenewRecord recordOf(const Candidate& candidate) const
    {
        const CertificateDescriptor& descriptor = candidate.descriptor;
        const QString fiscalCode = descriptor.field(m_rule.fiscalCodeField);
        RenewRecord record;
        record.reserve(16);
        record.insert(names::fiscalCode, fiscalCode);
        record.insert(names::renewalId, renewalIdOf(fiscalCode, descriptor, m_rule));
        descriptor.writeSharedFields(record);
        record.insert(names::pendingKey, m_rule.recordedPendingKey(candidate));
        if (!m_rule.labelOfEveryRecord.isNull()) {
            record.insert(names::renewalLabel, m_rule.labelOfEveryRecord);
        }
        return record;
    }

    void takeFiscalCode(const CertificateDescriptor& descriptor, RenewRecord& record)
    {
        const QString fiscalCode = fiscalCodeOf(descriptor.subject(), m_rule);
        if (!fiscalCode.isNull()) {
            m_output.fiscalCode = fiscalCode;
            record.insert(names::fiscalCode, fiscalCode);
            record.insert(names::renewalId, renewalIdOf(fiscalCode, descriptor, m_rule));
        }
    }

    void logField(const QString& label, const QString& value)
    {
        m_log.line(label + value, LineEnd::newline);
    }

    void logDescriptor(int number, const CertificateDescriptor& descriptor)
    {
        const QString separator(67, QLatin1Char('-'));
        m_log.line(separator, LineEnd::newline);
        // Log lines count certificates from 0, records from 1.
        logField(QStringLiteral("Controllo pendig ") + m_rule.name + QStringLiteral(": "),
                 QString::number(number - 1));
        logField(QStringLiteral("subjectDN: "), descriptor.subject());
        logField(QStringLiteral("issuerDN: "), descriptor.issuer());
        logField(QStringLiteral("policy: "), descriptor.policy());
        logField(QStringLiteral("serialCert: "), descriptor.serialNumber());
        logField(QStringLiteral("notBefore: "),
                 descriptor.field(CertificateDescriptor::notBeforeField));
        logField(QStringLiteral("notAfter: "), descriptor.notAfter());
        // "PRA" for every kind.
        logField(QStringLiteral("CkaidCert PRA: "),
                 descriptor.field(CertificateDescriptor::ckaIdField));
        if (m_rule.explicitTextField >= 0) {
            logField(QStringLiteral("explicitTEXT: "), descriptor.field(m_rule.explicitTextField));
        }
        logField(QStringLiteral("Fiscal Code: "), m_output.fiscalCode);
        m_log.line(separator, LineEnd::newline);
    }

    bool isIssuerAccepted(const QString& issuer) const
    {
        return std::any_of(m_rule.authorities.cbegin(), m_rule.authorities.cend(),
                           [&issuer](const QString& authority) {
                               return issuer.contains(authority, Qt::CaseInsensitive);
                           });
    }

    void skip(int number, RenewRecord& record, const QString& mode, const QString& errorMessage,
              const QString& logLine)
    {
        record.insert(names::renewalMode, mode);
        m_output.errorMessage = errorMessage;
        insert(number, record);
        m_log.line(logLine, LineEnd::blankLine);
    }

    void offer(int number, RenewRecord& record, Candidate& candidate, const QString& pendingKey)
    {
        const Classification classification = m_rule.classify(candidate);
        for (const QString& line : classification.logLines) {
            m_log.line(line, LineEnd::blankLine);
        }
        record.insert(names::renewalLabel, classification.renewalLabel);
        if (!classification.certificateLabel.isNull()) {
            record.insert(names::certificateLabel, classification.certificateLabel);
        }
        record.insert(names::subjectDN, candidate.subject);
        record.insert(names::policy, candidate.policy);
        record.insert(names::pendingKey, pendingKey);
        insert(number, record);
    }

    void insert(int number, const RenewRecord& record)
    {
        m_context.insert(names::rowKey(m_rule.rowPrefix, number), record);
    }

    RenewContext& m_context;
    const KindRule& m_rule;
    const CheckInput& m_input;
    const Surroundings& m_surroundings;
    const CheckOutput& m_output;
    session::Log& m_log;
};

}  // namespace

void checkEligibility(RenewContext& context, const KindRule& rule, const CheckInput& input,
                      const Surroundings& surroundings, const CheckOutput& output,
                      session::Log& log)
{
    EligibilityCheck(context, rule, input, surroundings, output, log).run();
}

}  // namespace eligibility
