#include "clock.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace {

time_t movedBy = 0;
time_t earliest = 0;
time_t latest = 0;

bool isWallClock(clockid_t clock)
{
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && isWallClock(clock))
        now->tv_sec += movedBy;
    return static_cast<int>(result);
}

extern "C" time_t time(time_t* now) noexcept
{
    timespec moment{};
    clock_gettime(CLOCK_REALTIME, &moment);
    if (now != nullptr)
        *now = moment.tv_sec;
    return moment.tv_sec;
}

extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept
{
    timespec moment{};
    clock_gettime(CLOCK_REALTIME, &moment);
    now->tv_sec = moment.tv_sec;
    now->tv_usec = moment.tv_nsec / 1000;
    return 0;
}

namespace support {

void setLocalTime(const QDateTime& localTime)
{
    latest = std::max(latest, time(nullptr));
    movedBy = 0;
    movedBy = static_cast<time_t>(localTime.toSecsSinceEpoch() - time(nullptr));
    earliest = std::min(earliest, time(nullptr));
}

void resetClock()
{
    constexpr int secondsPerDay = 24 * 60 * 60;
    constexpr int margin = 5 * 60;
    movedBy = 0;
    const int secondsOfDay = QTime(0, 0).secsTo(QTime::currentTime());
    if (secondsOfDay < margin || secondsOfDay > secondsPerDay - margin)
        movedBy = time_t{2} * margin;
    earliest = time(nullptr);
    latest = earliest;
}

QDateTime earliestShown()
{
    return QDateTime::fromSecsSinceEpoch(earliest);
}

QDateTime latestShown()
{
    return QDateTime::fromSecsSinceEpoch(std::max(latest, time(nullptr)));
}

}  // namespace support
