#include "session/clock.h"

#include <cstdlib>

namespace session {

namespace {

std::time_t currentSecond()
{
    std::timespec time{};
    // CLOCK_REALTIME cannot fail with a valid pointer (POSIX clock_gettime).
    static_cast<void>(clock_gettime(CLOCK_REALTIME, &time));
    return time.tv_sec;
}

QDateTime dateTimeOf(const std::tm& local)
{
    // A leap second has no place in QTime.
    const int second = local.tm_sec > 59 ? 59 : local.tm_sec;
    return {QDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday),
            QTime(local.tm_hour, local.tm_min, second), Qt::UTC};
}

}  // namespace

std::tm LocalClock::localTime(std::time_t seconds)
{
    // getenv is as thread-safe as the library itself: one thread at a time.
    const char* zone = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe)
    if (!m_zoneLoaded || m_zoneVariable != zone || m_zoneVariable.isNull() != (zone == nullptr)) {
        refreshZone();
    }
    std::tm local{};
    localtime_r(&seconds, &local);
    return local;
}

void LocalClock::refreshZone()
{
    m_zoneVariable = QByteArray(std::getenv("TZ"));  // NOLINT(concurrency-mt-unsafe)
    m_zoneLoaded = true;
    m_formattedSecond = -1;
    tzset();
}

QDateTime LocalClock::now()
{
    return dateTimeOf(localTime(currentSecond()));
}

QDate LocalClock::today()
{
    return now().date();
}

const QString& LocalClock::timestamp()
{
    const std::time_t second = currentSecond();
    const std::tm local = localTime(second);
    // Many lines are written within one second; only the formatting is saved, never the reading.
    if (second != m_formattedSecond) {
        m_formatted = dateTimeOf(local).toString(QStringLiteral("dd MMM yyyy hh:mm:ss"));
        m_formattedSecond = second;
    }
    return m_formatted;
}

}  // namespace session
