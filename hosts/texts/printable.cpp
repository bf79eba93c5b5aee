#include "hosts/texts/printable.h"

namespace texts {

QString printable(const QString& text)
{
    QString result = text;
    for (QChar& character : result) {
        const QChar::Category category = character.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format ||
            character == QChar::LineSeparator || character == QChar::ParagraphSeparator) {
            character = QLatin1Char('?');
        }
    }
    return result;
}

}  // namespace texts
