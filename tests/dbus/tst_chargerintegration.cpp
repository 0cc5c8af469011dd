#include "alarmstatus.h"
#include "logcapture.h"
#include "privatebus.h"
#include "secccontrollerinterface.h"
#include "seccmanager.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusVirtualObject>
#include <QMutex>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString seccService = QStringLiteral("com.ovra.secc.ev2");
const QString seccPath = QStringLiteral("/com/ovra/secc");

} // namespace

// One of the station's other services, played on a connection of its own: it takes its name
// when told, answers every call at its path with an empty reply and keeps the calls, and emits
// signals from that path.
class FakeService : public QDBusVirtualObject
{
    Q_OBJECT

public:
    FakeService(const QString &busAddress, const QString &service, const QString &path)
        : _service(service)
        , _path(path)
        , _connection(QDBusConnection::connectToBus(busAddress, service))
    {
        _connection.registerVirtualObject(_path, this);
    }
    ~FakeService() override { QDBusConnection::disconnectFromBus(_connection.name()); }

    bool registerService() { return _connection.registerService(_service); }
    bool unregisterService() { return _connection.unregisterService(_service); }
    bool emitSignal(const QString &interface, const QString &name, const QVariantList &arguments)
    {
        QDBusMessage message = QDBusMessage::createSignal(_path, interface, name);
        message.setArguments(arguments);
        return _connection.send(message);
    }
    QList<QDBusMessage> calls() const
    {
        const QMutexLocker lock(&_mutex);
        return _calls;
    }
    // A call from the given connection, answered: whatever that connection sent before has
    // arrived too, as the messages of one connection arrive in order.
    bool pingFrom(const QDBusConnection &caller)
    {
        QDBusPendingCallWatcher watcher(caller.asyncCall(
            QDBusMessage::createMethodCall(_service, _path, "org.example.Test", "Ping")));
        QSignalSpy answered(&watcher, &QDBusPendingCallWatcher::finished);
        return answered.wait() && !watcher.isError();
    }

    // Qt may hand virtual objects their messages in its D-Bus thread.
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.type() != QDBusMessage::MethodCallMessage)
            return false;
        const QMutexLocker lock(&_mutex);
        _calls.append(message);
        return connection.send(message.createReply());
    }
    QString introspect(const QString &) const override { return {}; }

private:
    const QString _service;
    const QString _path;
    QDBusConnection _connection;
    mutable QMutex _mutex;
    QList<QDBusMessage> _calls;
};

// The clients of the station's other services and the alarm set, none of which the daemon's own
// start-up creates: each against fake services on a private system bus.
class TestChargerIntegration : public QObject
{
    Q_OBJECT

private:
    PrivateBus _bus;

private slots:
    void initTestCase()
    {
        QVERIFY(_bus.isReady());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", _bus.address().toLocal8Bit());
        SeccTypes::registerTypes();
    }

    // The outlet's properties and energy transfer modes reach the SECC service each time it
    // registers, and only then.
    void seccSetupOncePerRegistration()
    {
        FakeService secc(_bus.address(), seccService, seccPath);
        SeccManager manager(QStringLiteral("DE*OVR*E000201"), 230, 32, 50, 6, 2);
        const QVariantMap properties { { "EVSE ID", "DE*OVR*E000201" },
            { "EVSE NOMINAL VOLTAGE", 230 }, { "EVSE MAX SUPPORTED CURRENT", 32 },
            { "EVSE NOMINAL FREQUENCY", 50 }, { "EVSE MIN SUPPORTED CURRENT", 6 },
            { "EVSE MAX SUPPORTED DISCHARGE CURRENT", 0 },
            { "EVSE MIN SUPPORTED DISCHARGE CURRENT", 0 } };
        for (int registration = 1; registration <= 2; ++registration) {
            QVERIFY(secc.registerService());
            QTRY_COMPARE(secc.calls().size(), 3 * registration - 1);
            // Whatever the manager sent before has arrived once this round trip is answered.
            QVERIFY(secc.pingFrom(QDBusConnection::systemBus()));
            const QList<QDBusMessage> calls = secc.calls().mid(3 * (registration - 1), 2);
            QCOMPARE(calls.value(0).member(), QStringLiteral("SetProperties"));
            QCOMPARE(qdbus_cast<QVariantMap>(calls.value(0).arguments().value(0)), properties);
            QCOMPARE(calls.value(1).member(), QStringLiteral("SetSupportedEnergyTransferModes"));
            QCOMPARE(
                qdbus_cast<QList<int>>(calls.value(1).arguments().value(0)), QList<int>({ 0, 1 }));
            QVERIFY(secc.unregisterService());
        }
    }

    void seccSchedulesTravel()
    {
        FakeService secc(_bus.address(), seccService, seccPath);
        QVERIFY(secc.registerService());
        ComOvraSeccControllerInterface controller(
            seccService, seccPath, QDBusConnection::systemBus());
        const SeccTypes::ChargingSchedules_t charging {
            { 1, { { { "start", 0 }, { "maxPower", 11000.0 } }, { { "start", 3600 } } } },
            { 2, {} },
        };
        // The fake answers from this thread's event loop.
        QDBusPendingCallWatcher call(controller.SetSaSchedules(charging, {}));
        QSignalSpy answered(&call, &QDBusPendingCallWatcher::finished);
        QVERIFY(answered.wait() && !call.isError());
        const QDBusMessage received = secc.calls().value(0);
        QCOMPARE(received.signature(), QStringLiteral("a{yaa{sv}}a{yaa{sv}}"));
        QCOMPARE(
            qdbus_cast<SeccTypes::ChargingSchedules_t>(received.arguments().value(0)), charging);

        QSignalSpy started(&controller, &ComOvraSeccControllerInterface::PowerDeliveryStart);
        const SeccTypes::PowerSchedules_t profile { { { "start", 0 }, { "power", 7400.0 } } };
        QVERIFY(secc.emitSignal("com.ovra.secc.controller", "PowerDeliveryStart",
            { QVariant::fromValue(uchar(1)), QVariant::fromValue(profile) }));
        QVERIFY(started.wait());
        QCOMPARE(started.first().at(1).value<SeccTypes::PowerSchedules_t>(), profile);
    }

    // Raised in order, each change told once; clearing takes one from the middle.
    void alarms()
    {
        AlarmStatus status;
        QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::fromType<QList<Alarms::AlarmType>>()),
            QByteArray("ai"));
        QSignalSpy updated(&status, &AlarmStatus::alarmsUpdated);
        LogCapture log;
        const auto alarm = [](int number) { return Alarms::AlarmType(number); };
        QVERIFY(status.raise(alarm(42)) && status.raise(alarm(0)) && status.raise(alarm(39)));
        QVERIFY(!status.raise(alarm(42)));
        QVERIFY(status.clear(alarm(0)));
        QVERIFY(!status.clear(alarm(0)) && !status.clear(alarm(5)));
        QCOMPARE(updated.count(), 4);
        QVERIFY(
            status.hasActiveAlarms() && status.contains(alarm(39)) && !status.contains(alarm(0)));
        status.printActiveAlarms();
        QStringList lines;
        for (const LogCapture::Line &line : log.lines())
            lines << QString::number(line.type) + ' ' + line.text;
        QCOMPARE(lines,
            QStringList({ "2 raise Alarm raised: 42", "2 raise Alarm raised: 0",
                "2 raise Alarm raised: 39", "4 clear Alarm cleared: 0", "2 printActiveAlarms 42",
                "2 printActiveAlarms 39" }));
        QVERIFY(status.clear(alarm(42)) && status.clear(alarm(39)));
        QVERIFY(!status.hasActiveAlarms());
    }
};

QTEST_GUILESS_MAIN(TestChargerIntegration)
#include "tst_chargerintegration.moc"
