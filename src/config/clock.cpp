#include "clock.h"

#include "clocktimer.h"

#include <QElapsedTimer>

#include <atomic>

namespace {

std::atomic<qint64> offsetMs { 0 };

const QElapsedTimer &processTimer()
{
    static const QElapsedTimer timer = [] {
        QElapsedTimer started;
        started.start();
        return started;
    }();
    return timer;
}

} // namespace

qint64 Clock::nowMs()
{
    return processTimer().elapsed() + offsetMs.load();
}

void Clock::advance(qint64 ms)
{
    offsetMs += ms;
    ClockTimer::rearmAll();
}
