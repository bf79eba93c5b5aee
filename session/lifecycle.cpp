#include "session/lifecycle.h"

#include "session/application_folder.h"

#include <QDir>
#include <QSettings>

#include <cstdio>

namespace session {

namespace {

constexpr qint64 largestKeptLog = 1'000'000;  // bytes

// The folder is new, so nobody relies on others reading it; the log names the holder.
void createUserFolder(const QString& path)
{
    const QDir folder(path);
    if (!folder.exists() && QDir().mkdir(path)) {
        static_cast<void>(QFile::setPermissions(
            path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    }
}

void openLog(const SessionVariables& variables, const QString& path, Log& log)
{
    // Of a session that was not ended: its last lines belong to its own log.
    log.flush();
    variables.logFile.close();

    variables.logFile.setFileName(path);
    if (variables.logFile.size() > largestKeptLog) {
        // When it fails the log only stays large.
        static_cast<void>(variables.logFile.resize(0));
    }
    if (!variables.logFile.open(QIODevice::Append | QIODevice::Text)) {
        static_cast<void>(variables.logFile.open(stdout, QIODevice::WriteOnly));
    }
    variables.logStream.setDevice(&variables.logFile);
}

void writeBanner(const SessionVariables& variables, const QString& startDate,
                 const QString& configurationPath, Log& log)
{
    log.line(QStringLiteral("Inizializazione del tool"), LineEnd::flush);
    log.plain(QString(74, QLatin1Char('-')) + QLatin1Char(' '), LineEnd::newline);
    log.plain(QStringLiteral("Procedura di Rinnovo Certificati. Avvio in data: ") + startDate,
              LineEnd::blankLine);
    log.line(QStringLiteral("Nome Libreria di Rinnovo: ") + variables.libraryName,
             LineEnd::blankLine);
    log.line(QStringLiteral("Versione Libreria di Rinnovo: ") + variables.libraryVersion,
             LineEnd::blankLine);
    log.line(QStringLiteral("brisko-r.conf Folder: ") + configurationPath, LineEnd::newline);
    log.line(QStringLiteral("ATR-renew.ini Folder: ") + variables.atrTable, LineEnd::blankLine);
}

}  // namespace

void start(RenewContext& context, const SessionVariables& variables, Log& log, LocalClock& clock)
{
    const QString hostFolder = applicationFolder();
    variables.atrTable = hostFolder + QStringLiteral("/../p11/ATR-renew.ini");

    const QString userFolder = QDir::homePath() + QStringLiteral("/.brisko");
    createUserFolder(userFolder);
    const QString logPath = userFolder + QStringLiteral("/TarveloQT.log");
    const QString configurationPath = userFolder + QStringLiteral("/brisko-r.conf");
    const QSettings configuration(configurationPath, QSettings::IniFormat);

    clock.refreshZone();
    const QString startDate = clock.now().toString(QStringLiteral("dd/MM/yyyy ore hh:mm"));

    openLog(variables, logPath, log);
    writeBanner(variables, startDate, configurationPath, log);

    RenewRecord settings;
    settings.insert(renew_context::hostFolder, hostFolder);
    const QString reader = configuration.value(QStringLiteral("reader"), QString()).toString();
    if (!reader.isEmpty()) {
        settings.insert(renew_context::reader, reader);
    }
    context.insert(renew_context::settingsRow, settings);
}

void finish(RenewContext& context, const SessionVariables& variables, Log& log)
{
    context.clear();
    log.flush();
    variables.logFile.close();
}

}  // namespace session
