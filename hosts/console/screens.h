// What tarvelo-renew shows. Plain text of at most 79 columns, without colours.

#ifndef TARVELOQT_HOSTS_CONSOLE_SCREENS_H
#define TARVELOQT_HOSTS_CONSOLE_SCREENS_H

#include "hosts/console/arguments.h"
#include "hosts/console/certificate_entry.h"
#include "hosts/console/exit_code.h"
#include "hosts/console/renewal_record.h"

#include <QDate>
#include <QString>
#include <QStringList>

#include <vector>

namespace console {

// The table of certificates: a heading and two lines for each, the second with the verdict.
QString certificateTable(const std::vector<CertificateEntry>& entries, QDate today);

// The end of validity before and after.
QString renewalResult(const CertificateEntry& before, const CertificateEntry& after);

// A kept renewal in one line: the first digits of its identifier, kind, holder, state, since when.
QString renewalLine(const RenewalRecord& record);

// Why the run ends, what to do next and where the log is; the empty place is left out. descriptor:
// where it will be shown, for the emphasis.
QString stopMessage(const Stop& stop, const QString& logPlace, int descriptor);

// The inventory's and the card check's refusals as sentences; empty for a result without one.
QString inventorySentence(int result);
QString cardCheckSentence(int result);

}  // namespace console

#endif
