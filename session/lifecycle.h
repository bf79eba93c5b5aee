#ifndef TARVELOQT_SESSION_LIFECYCLE_H
#define TARVELOQT_SESSION_LIFECYCLE_H

#include "renew_context.h"
#include "session/clock.h"
#include "session/log.h"

#include <QFile>
#include <QString>
#include <QTextStream>

namespace session {

// The process-wide variables that starting and ending a session uses.
struct SessionVariables {
    QTextStream& logStream;
    QFile& logFile;
    QString& atrTable;
    const QString& libraryName;
    const QString& libraryVersion;
};

// Points the log at its file (or at standard output), writes the banner and seeds the settings row.
void start(RenewContext& context, const SessionVariables& variables, Log& log, LocalClock& clock);

// Removes every row and closes the log.
void finish(RenewContext& context, const SessionVariables& variables, Log& log);

}  // namespace session

#endif
