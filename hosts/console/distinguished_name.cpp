#include "hosts/console/distinguished_name.h"

#include <QByteArray>
#include <QStringList>

#include <algorithm>
#include <optional>

namespace console {

namespace {

std::optional<char> hexPair(const QByteArray& bytes, int position)
{
    if (position + 2 > bytes.size()) {
        return std::nullopt;
    }
    bool isHex = false;
    const int value = bytes.mid(position, 2).toInt(&isHex, 16);
    return isHex ? std::optional<char>(static_cast<char>(value)) : std::nullopt;
}

// Splits at the separators that no backslash protects; the parts keep their escapes.
QList<QByteArray> splitUnescaped(const QByteArray& text)
{
    QList<QByteArray> parts;
    QByteArray part;
    for (int i = 0; i < text.size(); ++i) {
        const char byte = text.at(i);
        if (byte == '\\' && i + 1 < text.size()) {
            part.append(byte).append(text.at(++i));
        } else if (byte == ',' || byte == '+') {
            parts.append(part);
            part.clear();
        } else {
            part.append(byte);
        }
    }
    parts.append(part);
    return parts;
}

QString unescaped(const QByteArray& value)
{
    QByteArray result;
    for (int i = 0; i < value.size(); ++i) {
        if (value.at(i) != '\\' || i + 1 >= value.size()) {
            result.append(value.at(i));
        } else if (const auto byte = hexPair(value, i + 1)) {
            result.append(*byte);
            i += 2;
        } else {
            result.append(value.at(++i));
        }
    }
    return QString::fromUtf8(result);
}

QString valueOf(const std::vector<NameAttribute>& attributes, const char* type)
{
    const auto found =
        std::find_if(attributes.begin(), attributes.end(), [type](const NameAttribute& attribute) {
            return attribute.type == QLatin1String(type);
        });
    return found != attributes.end() ? found->value : QString();
}

}  // namespace

std::vector<NameAttribute> parseDistinguishedName(const QString& name)
{
    std::vector<NameAttribute> attributes;
    const QList<QByteArray> parts = splitUnescaped(name.toUtf8());
    for (const QByteArray& part : parts) {
        const int equals = part.indexOf('=');
        if (equals > 0) {
            attributes.push_back(
                {QString::fromUtf8(part.left(equals).trimmed()), unescaped(part.mid(equals + 1))});
        }
    }
    return attributes;
}

QString displayName(const QString& distinguishedName)
{
    const std::vector<NameAttribute> attributes = parseDistinguishedName(distinguishedName);
    QString commonName = valueOf(attributes, "2.5.4.3");
    if (!commonName.isEmpty()) {
        return commonName;
    }
    const QStringList person = {valueOf(attributes, "2.5.4.42"), valueOf(attributes, "2.5.4.4")};
    QString personName = person.join(QLatin1Char(' ')).trimmed();
    if (!personName.isEmpty()) {
        return personName;
    }
    const QString organisation = valueOf(attributes, "2.5.4.10");
    return organisation.isEmpty() ? distinguishedName : organisation;
}

}  // namespace console
