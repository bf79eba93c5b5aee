// Which reader to use.

#ifndef TARVELOQT_HOSTS_CONSOLE_READER_CHOICE_H
#define TARVELOQT_HOSTS_CONSOLE_READER_CHOICE_H

#include "hosts/console/reader_diagnosis.h"

#include <QString>

namespace console {

// wanted: the reader that was named or configured, which is taken as it is; empty for none. Then
// the only reader is taken, or the only one whose card can be used; among several the user is
// asked. Empty when the card libraries do not tell their readers, or there are none: the renewal
// library then chooses or fails. Throws Stop (noReader) when the choice stays open and nobody can
// be asked, (declined) when the user answers nothing.
QString chooseReader(const QString& wanted);

// The same among the readers of a diagnosis.
QString chooseReader(const Diagnosis& diagnosis);

}  // namespace console

#endif
