#ifndef TARVELOQT_SESSION_CLOCK_H
#define TARVELOQT_SESSION_CLOCK_H

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <ctime>

namespace session {

// The local wall clock, read anew at every call.
//
// Qt's own current date-time looks at the system's time-zone file each time when TZ is unset, which
// costs more than everything else in a log line. This clock leaves the zone's rules with the C
// library, which loads them once, and loads them again when TZ changes or refreshZone is called.
class LocalClock {
public:
    // Local date and time to the second. The time spec is UTC on purpose: the value is already
    // local, and Qt must not convert it again.
    QDateTime now();
    QDate today();

    // now() formatted "dd MMM yyyy hh:mm:ss", month names of the system locale. Valid until the
    // next call.
    const QString& timestamp();

    // Loads the time-zone rules again, for a zone that was changed since.
    void refreshZone();

private:
    std::tm localTime(std::time_t seconds);

    QByteArray m_zoneVariable;
    bool m_zoneLoaded = false;
    std::time_t m_formattedSecond = -1;
    QString m_formatted;
};

}  // namespace session

#endif
