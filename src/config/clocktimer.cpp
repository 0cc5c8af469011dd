#include "clocktimer.h"

#include "clock.h"

#include <QMutex>
#include <QSet>
#include <QTimer>

namespace {

QMutex registryMutex;
QSet<ClockTimer *> &registry()
{
    static QSet<ClockTimer *> timers;
    return timers;
}

} // namespace

ClockTimer::ClockTimer(QObject *parent)
    : QObject(parent)
    , _timer(new QTimer(this))
{
    _timer->setSingleShot(true);
    _timer->setTimerType(Qt::PreciseTimer);
    connect(_timer, &QTimer::timeout, this, &ClockTimer::_rearm);
    const QMutexLocker lock(&registryMutex);
    registry().insert(this);
}

ClockTimer::~ClockTimer()
{
    const QMutexLocker lock(&registryMutex);
    registry().remove(this);
}

void ClockTimer::start(int ms)
{
    _intervalMs = ms;
    start();
}

void ClockTimer::start()
{
    _active = true;
    _deadlineMs = Clock::nowMs() + _intervalMs;
    _rearm();
}

void ClockTimer::stop()
{
    _active = false;
    _timer->stop();
}

void ClockTimer::rearmAll()
{
    // Each timer re-reads the clock in its own thread.
    const QMutexLocker lock(&registryMutex);
    for (ClockTimer *timer : std::as_const(registry()))
        QMetaObject::invokeMethod(timer, &ClockTimer::_rearm, Qt::QueuedConnection);
}

void ClockTimer::_rearm()
{
    if (!_active)
        return;
    const qint64 remainingMs = _deadlineMs - Clock::nowMs();
    if (remainingMs > 0) {
        _timer->start(int(qMin<qint64>(remainingMs, std::numeric_limits<int>::max())));
        return;
    }
    if (_singleShot) {
        _active = false;
        _timer->stop();
    } else {
        _deadlineMs = Clock::nowMs() + _intervalMs;
        _timer->start(qMax(_intervalMs, 0));
    }
    emit timeout();
}
