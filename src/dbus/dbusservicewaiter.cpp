#include "dbusservicewaiter.h"

#include "clocktimer.h"

#include <QDBusConnectionInterface>

DBusServiceWaiter::DBusServiceWaiter(
    const QString &service, const QDBusConnection &bus, int timeLimitMs, QObject *parent)
    : QObject(parent)
    , _service(service)
    , _bus(bus)
    , _watcher(service, bus, QDBusServiceWatcher::WatchForRegistration)
    , _timer(new ClockTimer(this))
{
    _timer->setSingleShot(true);
    _timer->setInterval(timeLimitMs);
    connect(_timer, &ClockTimer::timeout, this, &DBusServiceWaiter::onTimeout);
    connect(&_watcher, &QDBusServiceWatcher::serviceRegistered, this,
        &DBusServiceWaiter::onServiceRegistered);
}

void DBusServiceWaiter::start()
{
    _waiting = true;
    _timer->start();
    // The watcher only reports registrations from now on; one made before is asked for.
    if (_bus.interface() && _bus.interface()->isServiceRegistered(_service))
        onServiceRegistered(_service);
}

void DBusServiceWaiter::onServiceRegistered(const QString &service)
{
    if (!_waiting || service != _service)
        return;
    _waiting = false;
    _timer->stop();
    emit finished();
}

void DBusServiceWaiter::onTimeout()
{
    if (!_waiting)
        return;
    _waiting = false;
    emit timeout();
}
