#include "clock.h"

#include "clocktimer.h"

#include <QElapsedTimer>
#include <QThread>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace {

std::atomic<qint64> offsetMs { 0 };

// Sleepers look at the clock, their stop request and their condition with this mutex held, and
// everything that changes one of those wakes them under it, so no wake-up is lost. The standard
// condition rather than QWaitCondition: ThreadSanitizer follows its unlock and relock while
// waiting, which happen inside Qt's uninstrumented library with QWaitCondition.
std::mutex sleepMutex;
std::condition_variable sleepers;

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
    std::unique_lock lock(sleepMutex);
    for (qint64 remaining = ms;
         remaining > 0 && !thread->isInterruptionRequested() && !(wakeWhen && wakeWhen());
         remaining = deadline - nowMs())
        sleepers.wait_for(lock, std::chrono::milliseconds(remaining));
}

void Clock::wakeSleepers()
{
    const std::lock_guard lock(sleepMutex);
    sleepers.notify_all();
}
