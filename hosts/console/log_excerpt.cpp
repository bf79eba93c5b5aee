#include "hosts/console/log_excerpt.h"

#include "hosts/console/record_store.h"

#include <QFile>
#include <QRegularExpression>

#include <card_v_func.h>
#include <unistd.h>

namespace console {

namespace {

QString& notedPlace()
{
    static QString place;
    return place;
}

}  // namespace

bool isLogReadable()
{
    return RENEWLOGFILE.isOpen() && RENEWLOGFILE.handle() != STDOUT_FILENO;
}

QString logFile()
{
    return RecordStore::userFolder() + QStringLiteral("/TarveloQT.log");
}

void noteLogPlace()
{
    notedPlace() = isLogReadable() ? RENEWLOGFILE.fileName() : QStringLiteral("standard output");
}

QString notedLogPlace()
{
    return notedPlace();
}

LogExcerpt::LogExcerpt()
{
    outLogFile.flush();
    m_start = QFile(RENEWLOGFILE.fileName()).size();
}

QStringList LogExcerpt::lines() const
{
    outLogFile.flush();
    QFile log(RENEWLOGFILE.fileName());
    if (!isLogReadable() || !log.open(QIODevice::ReadOnly) || !log.seek(m_start)) {
        return {};
    }
    return plainLogLines(QString::fromLocal8Bit(log.readAll()));
}

QStringList plainLogLines(const QString& text)
{
    static const QRegularExpression stamp(
        QStringLiteral(R"(\[\d\d [^\]]{1,20} \d{4} \d\d:\d\d:\d\d\]: ?)"));
    QString plain = text;
    plain.replace(stamp, QStringLiteral("\n"));
    QStringList lines;
    for (const QString& line : plain.split(QLatin1Char('\n'))) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty() && !lines.contains(trimmed)) {
            lines.append(trimmed);
        }
    }
    return lines;
}

}  // namespace console
