#include "session/last_error.h"

#include "imports/molvane.h"

#include <array>
#include <cstring>

namespace session {

QString CardError::latin1() const
{
    return QString::fromLatin1(text);
}

QString CardError::utf8() const
{
    return QString::fromUtf8(text);
}

CardError lastCardError()
{
    std::array<char, 255> buffer{};
    CardError error{QByteArray(""), 0};
    if (mvLastError(buffer.data(), static_cast<int>(buffer.size())) == 0) {
        error.text =
            QByteArray(buffer.data(), static_cast<int>(strnlen(buffer.data(), buffer.size())));
    }
    error.number = mvLastErrno();
    return error;
}

}  // namespace session
