#include "session/secret_bytes.h"

#include <QByteArray>

namespace session {

SecretBytes secretUtf8(const QString& text)
{
    SecretBytes bytes;
    // Converting the whole text at once would leave copies in buffers of Qt's that nobody wipes;
    // one character at a time shows nothing of the PIN.
    for (int position = 0; position < text.size();) {
        const bool pair = text.at(position).isHighSurrogate() && position + 1 < text.size() &&
                          text.at(position + 1).isLowSurrogate();
        const int length = pair ? 2 : 1;
        QByteArray character = QStringView(text).mid(position, length).toUtf8();
        bytes.insert(bytes.end(), character.cbegin(), character.cend());
        explicit_bzero(character.data(), static_cast<std::size_t>(character.size()));
        position += length;
    }
    bytes.push_back('\0');
    return bytes;
}

}  // namespace session
