// Reads the distinguished names that certificate records carry: attribute types as dotted object
// identifiers, values escaped as in RFC 4514 section 2.4, parts joined by "," and "+".

#ifndef TARVELOQT_HOSTS_CONSOLE_DISTINGUISHED_NAME_H
#define TARVELOQT_HOSTS_CONSOLE_DISTINGUISHED_NAME_H

#include <QString>

#include <vector>

namespace console {

struct NameAttribute {
    QString type;
    QString value;
};

// The attributes in the order of the text, values unescaped (UTF-8). What is no "type=value" is
// left out.
std::vector<NameAttribute> parseDistinguishedName(const QString& name);

// What to call the holder or issuer on a screen: the common name (2.5.4.3), else given name and
// surname (2.5.4.42, 2.5.4.4), else the organisation (2.5.4.10), else the whole text as it is.
QString displayName(const QString& distinguishedName);

}  // namespace console

#endif
