#ifndef TARVELOQT_SESSION_LOG_H
#define TARVELOQT_SESSION_LOG_H

#include "session/clock.h"

#include <QString>
#include <QTextStream>

namespace session {

// What follows a log line's text.
enum class LineEnd {
    none,       // nothing: the next line goes on in the same line of text
    newline,    // "\n"
    blankLine,  // "\n\n"
    flush,      // "\n", and the stream is flushed
};

// The only writer of the renewal log. While the stream has no open device nothing is written, and
// nothing is kept for a log that is opened later.
class Log {
public:
    // Both must outlive the log.
    Log(QTextStream& stream, LocalClock& clock)
        : m_stream(stream)
        , m_clock(clock)
    {
    }

    // "[" + time stamp + "]: " + text + end. The stamp is taken anew for every line.
    void line(const QString& text, LineEnd end);
    // Text and end without the stamp.
    void plain(const QString& text, LineEnd end);
    void flush();

private:
    bool isOpen() const;

    QTextStream& m_stream;
    LocalClock& m_clock;
};

}  // namespace session

#endif
