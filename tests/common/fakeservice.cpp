#include "fakeservice.h"

#include <QDBusPendingCallWatcher>
#include <QMutexLocker>
#include <QSignalSpy>

namespace {

QString connectionName()
{
    static int count = 0;
    return QStringLiteral("fakeservice%1").arg(++count);
}

} // namespace

FakeService::FakeService(const QString &busAddress, const QString &service, const QString &path)
    : _service(service)
    , _path(path)
    , _connection(QDBusConnection::connectToBus(busAddress, connectionName()))
{
    _connection.registerVirtualObject(_path, this);
}

FakeService::~FakeService()
{
    _connection.unregisterObject(_path);
    QDBusConnection::disconnectFromBus(_connection.name());
}

bool FakeService::emitSignal(
    const QString &interface, const QString &name, const QVariantList &arguments)
{
    QDBusMessage message = QDBusMessage::createSignal(_path, interface, name);
    message.setArguments(arguments);
    return _connection.send(message);
}

QList<QDBusMessage> FakeService::calls() const
{
    const QMutexLocker lock(&_mutex);
    return _calls;
}

bool FakeService::pingFrom(const QDBusConnection &caller)
{
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        _service, _path, QStringLiteral("org.example.Test"), QStringLiteral("Ping"));
    QDBusPendingCallWatcher watcher(caller.asyncCall(ping));
    QSignalSpy answered(&watcher, &QDBusPendingCallWatcher::finished);
    return answered.wait() && !watcher.isError();
}

bool FakeService::handleMessage(const QDBusMessage &message, const QDBusConnection &connection)
{
    if (message.type() != QDBusMessage::MethodCallMessage)
        return false;
    {
        const QMutexLocker lock(&_mutex);
        _calls.append(message);
    }
    return connection.send(message.createReply());
}
