#ifndef TARVELOQT_INVENTORY_CERTIFICATE_DESCRIPTOR_H
#define TARVELOQT_INVENTORY_CERTIFICATE_DESCRIPTOR_H

#include "renew_context.h"

#include <QString>
#include <QStringList>

namespace inventory {

// One certificate as the card-renewal library describes it: fields joined by "#". A field that is
// missing reads as empty.
class CertificateDescriptor {
public:
    // Positions that the descriptors of all kinds share; what follows differs by kind.
    static constexpr int subjectField = 0;
    static constexpr int issuerField = 1;
    static constexpr int iutField = 2;
    static constexpr int policyField = 3;
    static constexpr int serialNumberField = 4;
    static constexpr int notBeforeField = 5;
    static constexpr int notAfterField = 6;
    static constexpr int ckaIdField = 7;

    explicit CertificateDescriptor(const QString& text)
        : m_fields(text.split(QLatin1Char('#')))
    {
    }

    int fieldCount() const { return m_fields.size(); }
    QString field(int position) const { return m_fields.value(position); }

    QString subject() const { return field(subjectField); }
    QString issuer() const { return field(issuerField); }
    QString iut() const { return field(iutField); }
    QString policy() const { return field(policyField); }
    QString serialNumber() const { return field(serialNumberField); }
    QString notAfter() const { return field(notAfterField); }

    // Sets the record's keys for the eight shared fields.
    void writeSharedFields(RenewRecord& record) const;

private:
    QStringList m_fields;
};

}  // namespace inventory

#endif
