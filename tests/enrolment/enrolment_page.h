// docs/enrolment.md, which the tests hold to what they saw.

#ifndef TARVELOQT_TESTS_ENROLMENT_ENROLMENT_PAGE_H
#define TARVELOQT_TESTS_ENROLMENT_ENROLMENT_PAGE_H

#include <QByteArray>
#include <QString>

namespace trial {

// The whole page.
QString enrolmentPage();

// The content of the only code block of this language.
QByteArray example(const QString& language);

// The page has the table row "| first | second |".
void expectRow(const QString& first, const QString& second);

}  // namespace trial

#endif
