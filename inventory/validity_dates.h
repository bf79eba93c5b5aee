#ifndef TARVELOQT_INVENTORY_VALIDITY_DATES_H
#define TARVELOQT_INVENTORY_VALIDITY_DATES_H

#include <QDate>
#include <QString>

namespace inventory {

// The date of a validity text; not valid when the text has none of the forms that date conversion
// knows, among them "yyyyMMdd000000" and that followed by "Z".
QDate validityDate(const QString& text);

// The end of validity after a renewal on the given day: three years and the days still left after
// notAfter, formatted "yyyyMMdd000000". Precondition: today <= notAfter.
QString renewedNotAfter(const QDate& notAfter, const QDate& today);

// The date that the first eight characters of a validity text stand for, yyyyMMdd.
QDate leadingDate(const QString& text);

}  // namespace inventory

#endif
