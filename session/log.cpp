#include "session/log.h"

#include <QIODevice>

namespace session {

namespace {

QLatin1String terminator(LineEnd end)
{
    switch (end) {
    case LineEnd::none:
        break;
    case LineEnd::newline:
    case LineEnd::flush:
        return QLatin1String("\n");
    case LineEnd::blankLine:
        return QLatin1String("\n\n");
    }
    return {};
}

}  // namespace

bool Log::isOpen() const
{
    const QIODevice* device = m_stream.device();
    return m_stream.string() != nullptr || (device != nullptr && device->isWritable());
}

void Log::line(const QString& text, LineEnd end)
{
    if (!isOpen()) {
        return;
    }
    m_stream << QLatin1Char('[') << m_clock.timestamp() << QLatin1String("]: ");
    plain(text, end);
}

void Log::plain(const QString& text, LineEnd end)
{
    if (!isOpen()) {
        return;
    }
    m_stream << text << terminator(end);
    if (end == LineEnd::flush) {
        m_stream.flush();
    }
}

void Log::flush()
{
    if (isOpen()) {
        m_stream.flush();
    }
}

}  // namespace session
