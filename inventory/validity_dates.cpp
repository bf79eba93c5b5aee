#include "inventory/validity_dates.h"

#include <QStringView>

#include <algorithm>

namespace inventory {

QDate validityDate(const QString& text)
{
    // In a conversion to a date the letters of hours, minutes and seconds are literal text; the
    // last four patterns are kept for the texts that they do take.
    static const QString patterns[]{
        QStringLiteral("yyyyMMdd000000"),  QStringLiteral("yyyyMMdd000000Z"),
        QStringLiteral("yyyyMMddhhmmssZ"), QStringLiteral("yyyyMMddhhmmss"),
        QStringLiteral("yyMMddhhmmssZ"),   QStringLiteral("yyMMddhhmmss"),
    };
    for (const QString& pattern : patterns) {
        const QDate date = QDate::fromString(text, pattern);
        if (date.isValid()) {
            return date;
        }
    }
    return {};
}

QString renewedNotAfter(const QDate& notAfter, const QDate& today)
{
    return notAfter.addYears(3)
        .addDays(today.daysTo(notAfter))
        .toString(QStringLiteral("yyyyMMdd000000"));
}

QDate leadingDate(const QString& text)
{
    const QStringView date = QStringView(text).left(8);
    const bool digits = date.size() == 8 && std::all_of(date.cbegin(), date.cend(), [](QChar c) {
                            return c >= QLatin1Char('0') && c <= QLatin1Char('9');
                        });
    if (digits) {
        // What the conversion by pattern yields for eight digits, at a hundredth of its cost.
        return {date.left(4).toInt(), date.mid(4, 2).toInt(), date.mid(6, 2).toInt()};
    }
    return QDate::fromString(date.toString(), QStringLiteral("yyyyMMdd"));
}

}  // namespace inventory
