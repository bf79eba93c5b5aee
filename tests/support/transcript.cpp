#include "transcript.h"

#include "clock.h"

#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace support {

std::string maskStamps(const std::string& log)
{
    static const QRegularExpression stamp(
        QStringLiteral(R"(\[(\d\d [^\[\]\s]+ \d{4} \d\d:\d\d:\d\d)\])"));
    const QString text = QString::fromStdString(log);
    auto matches = stamp.globalMatch(text);
    while (matches.hasNext()) {
        const QString shown = matches.next().captured(1);
        const QDateTime moment =
            QLocale::system().toDateTime(shown, QStringLiteral("dd MMM yyyy hh:mm:ss"));
        EXPECT_TRUE(moment.isValid()) << shown.toStdString();
        EXPECT_GE(moment, earliestShown()) << shown.toStdString();
        EXPECT_LE(moment, latestShown()) << shown.toStdString();
    }
    return QString(text).replace(stamp, QStringLiteral("[*]")).toStdString();
}

}  // namespace support
