#include "session/clock.h"

#include <QDateTime>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

// The clock under test and Qt's own, which looks at the zone each time, in the same second.
void expectSameAsQt(session::LocalClock& clock)
{
    QDateTime before;
    QDateTime mine;
    QDateTime after;
    QString stamp;
    do {
        before = QDateTime::currentDateTime();
        mine = clock.now();
        stamp = clock.timestamp();
        after = QDateTime::currentDateTime();
    } while (before.time().second() != after.time().second());
    EXPECT_EQ(mine.date(), before.date());
    EXPECT_EQ(mine.time(),
              QTime(before.time().hour(), before.time().minute(), before.time().second()));
    EXPECT_EQ(stamp, before.toString(QStringLiteral("dd MMM yyyy hh:mm:ss")));
    EXPECT_EQ(clock.today(), before.date());
}

TEST(LocalClock, zoneSetChangedAndUnset_isFollowed)
{
    session::LocalClock clock;
    for (const char* zone : {"UTC", "Europe/Rome", "Pacific/Auckland", "XYZ-14", ""}) {
        SCOPED_TRACE(zone);
        ASSERT_EQ(setenv("TZ", zone, 1), 0);
        tzset();
        expectSameAsQt(clock);
    }
    ASSERT_EQ(unsetenv("TZ"), 0);
    tzset();
    expectSameAsQt(clock);
}

TEST(LocalClock, timestamp_isTakenAnewEachSecond)
{
    session::LocalClock clock;
    const QString first = clock.timestamp();
    const QDateTime start = clock.now();
    while (clock.now() == start) {
        const std::timespec pause{0, 10'000'000};
        nanosleep(&pause, nullptr);
    }
    EXPECT_NE(clock.timestamp(), first);
}

}  // namespace
