// How GoogleTest shows Qt's strings, and Qt's containers as the standard ones it can show.

#ifndef TARVELOQT_TESTS_SUPPORT_PRINTING_H
#define TARVELOQT_TESTS_SUPPORT_PRINTING_H

#include "renew_context.h"

#include <QByteArray>
#include <QString>

#include <map>
#include <ostream>
#include <string>

// NOLINTBEGIN(readability-identifier-naming): the names GoogleTest looks for
inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << (text.isNull() ? "null" : "\"" + text.toStdString() + "\"");
}

inline void PrintTo(const QByteArray& bytes, std::ostream* out)
{
    *out << '"' << bytes.toStdString() << '"';
}
// NOLINTEND(readability-identifier-naming)

namespace support {

using PlainRecord = std::map<std::string, std::string>;
using PlainContext = std::map<std::string, PlainRecord>;

inline PlainRecord plain(const RenewRecord& record)
{
    PlainRecord result;
    for (auto entry = record.begin(); entry != record.end(); ++entry)
        result[entry.key().toStdString()] = entry.value().toStdString();
    return result;
}

inline PlainContext plain(const RenewContext& context)
{
    PlainContext result;
    for (auto row = context.begin(); row != context.end(); ++row)
        result[row.key().toStdString()] = plain(row.value());
    return result;
}

}  // namespace support

#endif
