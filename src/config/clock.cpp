#include "clock.h"

#include "clocktimer.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <atomic>

namespace {

std::atomic<qint64> offsetMs { 0 };

// Sleepers look at the clock, their stop request and their condition with this mutex held, and
// everything that changes one of those wakes them under it, so no wake-up is lost.
QMutex sleepMutex;
QWaitCondition sleepers;

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
    wakeSleepers();
    ClockTimer::rearmAll();
}

void Clock::sleepMs(qint64 ms, const std::function<bool()> &wakeWhen)
{
    const qint64 deadline = nowMs() + ms;
    const QThread *thread = QThread::currentThread();
    const QMutexLocker lock(&sleepMutex);
    for (qint64 remaining = ms;
         remaining > 0 && !thread->isInterruptionRequested() && !(wakeWhen && wakeWhen());
         remaining = deadline - nowMs())
        sleepers.wait(&sleepMutex, QDeadlineTimer(remaining, Qt::PreciseTimer));
}

void Clock::wakeSleepers()
{
    const QMutexLocker lock(&sleepMutex);
    sleepers.wakeAll();
}
