#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QList>
#include <QMutex>
#include <QString>
#include <QVariantList>

// One of the station's other services, played by the test on its own connection to a bus: it
// takes its name when told, answers every method call at its object path with an empty reply
// and keeps the calls, and emits signals from that path.
class FakeService : public QDBusVirtualObject
{
    Q_OBJECT

public:
    FakeService(const QString &busAddress, const QString &service, const QString &path);
    ~FakeService() override;

    bool isConnected() const { return _connection.isConnected(); }
    bool registerService() { return _connection.registerService(_service); }
    bool unregisterService() { return _connection.unregisterService(_service); }
    bool emitSignal(const QString &interface, const QString &name, const QVariantList &arguments);

    // The method calls received so far, oldest first.
    QList<QDBusMessage> calls() const;
    // Calls the service from the given connection and waits for the answer. Messages from one
    // connection arrive in order, so whatever that connection sent before has arrived too.
    bool pingFrom(const QDBusConnection &caller);

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;
    QString introspect(const QString &) const override { return {}; }

private:
    const QString _service;
    const QString _path;
    QDBusConnection _connection;
    // Qt may hand virtual objects their messages in its D-Bus thread.
    mutable QMutex _mutex;
    QList<QDBusMessage> _calls;
};
