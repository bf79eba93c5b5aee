// doctor: what is wrong on this machine, with its readers and the card, and how to mend it.

#ifndef TARVELOQT_HOSTS_CONSOLE_DOCTOR_H
#define TARVELOQT_HOSTS_CONSOLE_DOCTOR_H

#include "hosts/console/arguments.h"

#include <QJsonObject>

namespace console {

// Looks without changing anything on the card and without a PIN. Throws Stop (problemsFound) when a
// finding is a problem.
void examine(const Arguments& arguments, QJsonObject& answer);

}  // namespace console

#endif
