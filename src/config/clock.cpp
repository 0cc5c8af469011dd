#include "clock.h"

#include "clocktimer.h"

#include <QElapsedTimer>
#include <QThread>

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

void Clock::sleepMs(qint64 ms)
{
    // Short slices so that a test advancing the clock, or a stop request, ends the sleep soon.
    constexpr qint64 sliceMs = 20;
    const qint64 deadline = nowMs() + ms;
    for (qint64 remaining = ms;
         remaining > 0 && !QThread::currentThread()->isInterruptionRequested();
         remaining = deadline - nowMs())
        QThread::msleep(ulong(qMin(remaining, sliceMs)));
}
