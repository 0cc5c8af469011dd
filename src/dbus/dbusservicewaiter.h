#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QString>

class ClockTimer;

// Waits for a named service to appear on a bus, for at most a time limit. Each wait ends with
// exactly one of finished() (the service is there, also when it already was at start()) or
// timeout().
class DBusServiceWaiter : public QObject
{
    Q_OBJECT

public:
    DBusServiceWaiter(const QString &service, const QDBusConnection &bus, int timeLimitMs,
        QObject *parent = nullptr);

signals:
    void finished();
    void timeout();

public slots:
    // Starting again while waiting restarts the time limit of the same wait.
    void start();
    void onServiceRegistered(const QString &service);
    void onTimeout();

private:
    const QString _service;
    QDBusConnection _bus;
    QDBusServiceWatcher _watcher;
    ClockTimer *_timer;
    bool _waiting = false;
};
