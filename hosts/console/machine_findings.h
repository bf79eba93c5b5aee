// What doctor looks at besides readers and cards.

#ifndef TARVELOQT_HOSTS_CONSOLE_MACHINE_FINDINGS_H
#define TARVELOQT_HOSTS_CONSOLE_MACHINE_FINDINGS_H

#include "hosts/console/finding.h"

#include <QDateTime>
#include <QString>

#include <vector>

namespace console {

// Whether the smart card service's program is on this machine.
bool isServiceInstalled();

// The user's folder with log and renewal records. Writes nothing.
std::vector<Finding> homeFindings(const QString& userFolder);

// now against the day on which this program was installed.
Finding clockFinding(const QDateTime& now, const QDateTime& installed);

// When the running executable's file was written; never before the program existed.
QDateTime installationTime();

}  // namespace console

#endif
