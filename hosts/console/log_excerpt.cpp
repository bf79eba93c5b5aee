#include "hosts/console/log_excerpt.h"

#include <QFile>
#include <QRegularExpression>

#include <card_v_func.h>
#include <unistd.h>

namespace console {

bool isLogReadable()
{
    return RENEWLOGFILE.isOpen() && RENEWLOGFILE.handle() != STDOUT_FILENO;
}

QString logPlace()
{
    return isLogReadable() ? RENEWLOGFILE.fileName() : QStringLiteral("standard output");
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
