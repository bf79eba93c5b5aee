#include "hosts/console/text_layout.h"

#include <QStringList>
#include <QVector>

#include <cwchar>

namespace console {

int displayWidth(const QString& text)
{
    int width = 0;
    const QVector<uint> codePoints = text.toUcs4();
    for (const uint codePoint : codePoints) {
        const int columns = wcwidth(static_cast<wchar_t>(codePoint));
        width += columns < 0 ? 1 : columns;
    }
    return width;
}

QString fitted(const QString& text, int width)
{
    const int taken = displayWidth(text);
    if (taken <= width) {
        return text + QString(width - taken, QLatin1Char(' '));
    }
    const QString mark = QStringLiteral("..");
    QString cut = text;
    while (!cut.isEmpty() && displayWidth(cut) > width - mark.size()) {
        const bool pair = cut.size() > 1 && cut.at(cut.size() - 1).isLowSurrogate();
        cut.chop(pair ? 2 : 1);
    }
    return fitted(cut + mark, width);
}

QString wrapped(const QString& text, int indent)
{
    const QString margin(indent, QLatin1Char(' '));
    QStringList lines;
    for (const QString& paragraph : text.split(QLatin1Char('\n'))) {
        QString line;
        for (const QString& word : paragraph.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const bool fits = indent + displayWidth(line) + 1 + displayWidth(word) < screenWidth;
            if (!line.isEmpty() && !fits) {
                lines.append(margin + line);
                line.clear();
            }
            line += line.isEmpty() ? word : QLatin1Char(' ') + word;
        }
        lines.append(line.isEmpty() ? QString() : margin + line);
    }
    return lines.join(QLatin1Char('\n'));
}

}  // namespace console
