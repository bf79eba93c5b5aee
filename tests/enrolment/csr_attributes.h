// What EST servers of the tests demand of requests.

#ifndef TARVELOQT_TESTS_ENROLMENT_CSR_ATTRIBUTES_H
#define TARVELOQT_TESTS_ENROLMENT_CSR_ATTRIBUTES_H

#include <QByteArray>

namespace trial {

// DER of a SEQUENCE; lines: its entries in the language of ASN1_generate_nconf(3), each with a
// name, then the sections that they refer to.
QByteArray csrAttributes(const QByteArray& lines);

}  // namespace trial

#endif
