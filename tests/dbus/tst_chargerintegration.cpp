#include "alarmstatus.h"
#include "chargemanagerdbusinterface.h"
#include "clock.h"
#include "dbusservicewaiter.h"
#include "fakeservice.h"
#include "logcapture.h"
#include "privatebus.h"
#include "secccontrollerinterface.h"
#include "seccmanager.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QSignalSpy>
#include <QTest>


using namespace CommonTypes;

namespace {

const QString seccService = QStringLiteral("com.ovra.secc.ev2");
const QString seccPath = QStringLiteral("/com/ovra/secc");
const QString setupInterface = QStringLiteral("com.ovra.secc.setup");

// A call as "member(signature) arguments", the arguments read in the order they travelled.
QString describe(const QDBusMessage &call)
{
    QStringList arguments;
    if (call.signature() == QLatin1String("a{sv}")) {
        const QDBusArgument map = call.arguments().value(0).value<QDBusArgument>();
        map.beginMap();
        while (!map.atEnd()) {
            QString key;
            QDBusVariant value;
            map.beginMapEntry();
            map >> key >> value;
            map.endMapEntry();
            arguments << QStringLiteral("%1=%2:%3")
                             .arg(key,
                                 QString::fromLatin1(
                                     QDBusMetaType::typeToSignature(value.variant().metaType())),
                                 value.variant().toString());
        }
        map.endMap();
    } else if (call.signature() == QLatin1String("ai")) {
        for (int mode : qdbus_cast<QList<int>>(call.arguments().value(0)))
            arguments << QString::number(mode);
    }
    const QString interface = call.interface() == setupInterface
        ? QString()
        : call.interface() + QLatin1Char('.');
    return QStringLiteral("%1%2(%3) %4")
        .arg(interface, call.member(), call.signature(), arguments.join(QLatin1Char(' ')));
}

QStringList describe(const QList<QDBusMessage> &calls)
{
    QStringList described;
    for (const QDBusMessage &call : calls)
        described << describe(call);
    return described;
}

using Requests = QList<std::pair<int, CpStateMode>>;

const QString sessionManagerService = QStringLiteral("com.tessaline.gridcontroller");

const QString waitedService = QStringLiteral("com.ovra.test.waited");
constexpr int timeLimitMs = 5000;

// The lines of the outlet category, as "C text" (critical) or "I text" (info).
QStringList outletLines(const LogCapture &log)
{
    QStringList lines;
    for (const LogCapture::Line &line : log.lines()) {
        if (line.category == QLatin1String("outlet"))
            lines << (line.type == QtCriticalMsg      ? "C "
                             : line.type == QtInfoMsg ? "I "
                                                      : "? ")
                    + line.text;
    }
    return lines;
}

} // namespace

// The clients of the station's other services and the alarm set, none of which the daemon's own
// start-up creates: each against fake services on a private system bus.
class TestChargerIntegration : public QObject
{
    Q_OBJECT

public:
    enum Appearance { BeforeStart, InTime, AfterTheLimit, Never };
    Q_ENUM(Appearance)

private:
    PrivateBus _bus;
    std::unique_ptr<FakeService> _sessionManager;

private slots:
    void initTestCase()
    {
        QVERIFY(_bus.isReady());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", _bus.address().toLocal8Bit());
        _sessionManager = std::make_unique<FakeService>(
            _bus.address(), sessionManagerService, QStringLiteral("/SessionManager"));
        QVERIFY(_sessionManager->registerService());
    }

    void cleanupTestCase() { _sessionManager.reset(); }

    void setupOncePerRegistration_data()
    {
        QTest::addColumn<bool>("alreadyOnTheBus");
        QTest::newRow("registers after the manager starts") << false;
        QTest::newRow("already on the bus") << true;
    }

    void setupOncePerRegistration()
    {
        QFETCH(bool, alreadyOnTheBus);
        FakeService secc(_bus.address(), seccService, seccPath);
        QVERIFY(secc.isConnected());
        if (alreadyOnTheBus)
            QVERIFY(secc.registerService());

        SeccManager manager(QStringLiteral("DE*OVR*E000201"), 230, 32, 50, 6, 2);
        if (!alreadyOnTheBus)
            QVERIFY(secc.registerService());

        // a{sv} travels sorted by key.
        const QStringList setup {
            "SetProperties(a{sv}) EVSE ID=s:DE*OVR*E000201 EVSE MAX SUPPORTED CURRENT=i:32 "
            "EVSE MAX SUPPORTED DISCHARGE CURRENT=i:0 EVSE MIN SUPPORTED CURRENT=i:6 "
            "EVSE MIN SUPPORTED DISCHARGE CURRENT=i:0 EVSE NOMINAL FREQUENCY=i:50 "
            "EVSE NOMINAL VOLTAGE=i:230",
            "SetSupportedEnergyTransferModes(ai) 0 1",
        };
        const QString ping = QStringLiteral("org.example.Test.Ping() ");
        QTRY_VERIFY(secc.calls().size() >= 2);
        QVERIFY(secc.pingFrom(QDBusConnection::systemBus()));
        QCOMPARE(describe(secc.calls()), setup + QStringList { ping });

        QVERIFY(secc.unregisterService());
        QVERIFY(secc.registerService());
        QTRY_VERIFY(secc.calls().size() >= 5);
        QVERIFY(secc.pingFrom(QDBusConnection::systemBus()));
        QCOMPARE(
            describe(secc.calls()), setup + QStringList { ping } + setup + QStringList { ping });
    }

    void schedulesTravel()
    {
        SeccTypes::registerTypes();
        FakeService secc(_bus.address(), seccService, seccPath);
        QVERIFY(secc.registerService());
        ComOvraSeccControllerInterface controller(
            seccService, seccPath, QDBusConnection::systemBus());

        const SeccTypes::ChargingSchedules_t charging {
            { 1, { { { "start", 0 }, { "maxPower", 11000.0 } }, { { "start", 3600 } } } },
            { 2, {} },
        };
        QDBusPendingCallWatcher call(controller.SetSaSchedules(charging, {}));
        QSignalSpy answered(&call, &QDBusPendingCallWatcher::finished);
        QVERIFY(answered.wait());
        QVERIFY(!call.isError());
        const QDBusMessage received = secc.calls().value(0);
        QCOMPARE(received.signature(), QStringLiteral("a{yaa{sv}}a{yaa{sv}}"));
        QCOMPARE(
            qdbus_cast<SeccTypes::ChargingSchedules_t>(received.arguments().value(0)), charging);
        QVERIFY(
            qdbus_cast<SeccTypes::ChargingSchedules_t>(received.arguments().value(1)).isEmpty());

        QSignalSpy started(&controller, &ComOvraSeccControllerInterface::PowerDeliveryStart);
        const SeccTypes::PowerSchedules_t profile { { { "start", 0 }, { "power", 7400.0 } } };
        QVERIFY(secc.emitSignal(QStringLiteral("com.ovra.secc.controller"),
            QStringLiteral("PowerDeliveryStart"),
            { QVariant::fromValue(uchar(1)), QVariant::fromValue(profile) }));
        QVERIFY(started.wait());
        QCOMPARE(started.first().at(0).value<uchar>(), uchar(1));
        QCOMPARE(started.first().at(1).value<SeccTypes::PowerSchedules_t>(), profile);
    }

    void requestedModes_data()
    {
        QTest::addColumn<Requests>("requests");
        QTest::addColumn<QList<int>>("updatedPorts");
        QTest::addColumn<QList<CpStateMode>>("modesOfOutlets1And2");

        QTest::newRow("repeated mode counts once")
            << Requests { { 1, MODE_HLC }, { 1, MODE_HLC }, { 1, MODE_NORMAL } }
            << QList<int> { 1, 1 } << QList<CpStateMode> { MODE_NORMAL, MODE_NORMAL };
        QTest::newRow("first request for the normal mode")
            << Requests { { 2, MODE_NORMAL } } << QList<int>()
            << QList<CpStateMode> { MODE_NORMAL, MODE_NORMAL };
        QTest::newRow("outlets kept apart")
            << Requests { { 1, MODE_HLC }, { 2, MODE_E }, { 2, MODE_E }, { 1, MODE_E } }
            << QList<int> { 1, 2, 1 } << QList<CpStateMode> { MODE_E, MODE_E };
    }

    void requestedModes()
    {
        QFETCH(Requests, requests);
        QFETCH(QList<int>, updatedPorts);
        QFETCH(QList<CpStateMode>, modesOfOutlets1And2);

        ChargeManagerDBusInterface chargeManager;
        QSignalSpy updated(&chargeManager, &ChargeManagerDBusInterface::cpStateModeUpdated);
        // A round trip on the client's connection: its signal subscription is in place after it.
        QVERIFY(
            QDBusConnection::systemBus().interface()->isServiceRegistered(sessionManagerService));

        // Outlet 9 last: the signals of one sender arrive in order, so its update ends the row.
        requests.append({ 9, MODE_HLC });
        for (const auto &[port, mode] : std::as_const(requests)) {
            QVERIFY(_sessionManager->emitSignal(
                QStringLiteral("com.tessaline.gridcontroller.SessionManager"),
                QStringLiteral("SetCpStateMode"), { QVariant::fromValue(uchar(port)), int(mode) }));
        }
        QTRY_VERIFY(!updated.isEmpty() && updated.last().at(0).toInt() == 9);
        QList<int> ports;
        for (const QList<QVariant> &emitted : std::as_const(updated))
            ports << emitted.at(0).toInt();
        QCOMPARE(ports, updatedPorts + QList<int> { 9 });
        QCOMPARE(QList<CpStateMode>({ chargeManager.cpStateMode(1), chargeManager.cpStateMode(2) }),
            modesOfOutlets1And2);
    }

    void oneOutcomePerWait_data()
    {
        QTest::addColumn<Appearance>("appearance");
        QTest::addColumn<bool>("finishes");
        QTest::newRow("already there at start") << BeforeStart << true;
        QTest::newRow("appears in time") << InTime << true;
        QTest::newRow("appears after the limit") << AfterTheLimit << false;
        QTest::newRow("never appears") << Never << false;
    }

    void oneOutcomePerWait()
    {
        QFETCH(Appearance, appearance);
        QFETCH(bool, finishes);
        const QDBusConnection bus = QDBusConnection::systemBus();
        FakeService service(_bus.address(), waitedService, QStringLiteral("/"));
        DBusServiceWaiter waiter(waitedService, bus, timeLimitMs);
        QSignalSpy finished(&waiter, &DBusServiceWaiter::finished);
        QSignalSpy timedOut(&waiter, &DBusServiceWaiter::timeout);
        // Sees the same registrations as the waiter, on the same connection.
        QDBusServiceWatcher watcher(waitedService, bus, QDBusServiceWatcher::WatchForRegistration);
        QSignalSpy registered(&watcher, &QDBusServiceWatcher::serviceRegistered);

        if (appearance == BeforeStart)
            QVERIFY(service.registerService());
        waiter.start();
        if (appearance == InTime) {
            QVERIFY(service.registerService());
            QVERIFY(registered.wait());
        }
        QTRY_COMPARE(finished.count(), finishes ? 1 : 0);

        Clock::advance(timeLimitMs);
        QTRY_COMPARE(timedOut.count(), finishes ? 0 : 1);
        if (appearance == AfterTheLimit) {
            QVERIFY(service.registerService());
            QVERIFY(registered.wait());
        }
        Clock::advance(timeLimitMs);
        QCoreApplication::processEvents();
        QCOMPARE(finished.count(), finishes ? 1 : 0);
        QCOMPARE(timedOut.count(), finishes ? 0 : 1);
    }

    void registeredForSignalsAndBus()
    {
        const AlarmStatus status;
        QCOMPARE(
            QMetaType::fromName("Alarms::AlarmType"), QMetaType::fromType<Alarms::AlarmType>());
        QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::fromType<QList<Alarms::AlarmType>>()),
            QByteArray("ai"));
    }

    void raiseAndClear_data()
    {
        QTest::addColumn<QStringList>("operations");
        QTest::addColumn<QList<bool>>("results");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QList<int>>("active");

        QTest::newRow("raising twice")
            << QStringList { "+2", "+2" } << QList<bool> { true, false }
            << QStringList { "C raise Alarm raised: 2" } << QList<int> { 2 };
        QTest::newRow("clearing an inactive alarm")
            << QStringList { "+4", "-2" } << QList<bool> { true, false }
            << QStringList { "C raise Alarm raised: 4" } << QList<int> { 4 };
        QTest::newRow("raised order kept")
            << QStringList { "+3", "+27", "+3", "-3" } << QList<bool> { true, true, false, true }
            << QStringList { "C raise Alarm raised: 3", "C raise Alarm raised: 27",
                   "I clear Alarm cleared: 3" }
            << QList<int> { 27 };
        QTest::newRow("clearing from the middle")
            << QStringList { "+42", "+0", "+9", "-0", "-0" }
            << QList<bool> { true, true, true, true, false }
            << QStringList { "C raise Alarm raised: 42", "C raise Alarm raised: 0",
                   "C raise Alarm raised: 9", "I clear Alarm cleared: 0" }
            << QList<int> { 42, 9 };
        QTest::newRow("unassigned numbers held")
            << QStringList { "+39", "+1" } << QList<bool> { true, true }
            << QStringList { "C raise Alarm raised: 39", "C raise Alarm raised: 1" }
            << QList<int> { 39, 1 };
        QTest::newRow("all cleared")
            << QStringList { "+5", "-5" } << QList<bool> { true, true }
            << QStringList { "C raise Alarm raised: 5", "I clear Alarm cleared: 5" }
            << QList<int>();
    }

    void raiseAndClear()
    {
        QFETCH(QStringList, operations);
        QFETCH(QList<bool>, results);
        QFETCH(QStringList, log);
        QFETCH(QList<int>, active);

        AlarmStatus status;
        LogCapture capture;
        Alarms::AlarmType alarm {};
        // What a listener finds when told of a change: whether the alarm changed is active.
        QList<bool> heldWhenTold;
        connect(&status, &AlarmStatus::alarmsUpdated, this,
            [&] { heldWhenTold << status.contains(alarm); });
        QList<bool> actual;
        QList<bool> expectedHeld;
        for (const QString &operation : std::as_const(operations)) {
            alarm = Alarms::AlarmType(operation.mid(1).toInt());
            const bool raising = operation.startsWith(QLatin1Char('+'));
            actual << (raising ? status.raise(alarm) : status.clear(alarm));
            if (actual.last())
                expectedHeld << raising;
        }
        QCOMPARE(actual, results);
        QCOMPARE(heldWhenTold, expectedHeld);
        QCOMPARE(outletLines(capture), log);

        QCOMPARE(status.hasActiveAlarms(), !active.isEmpty());
        for (int number : std::as_const(active))
            QVERIFY(status.contains(Alarms::AlarmType(number)));
        capture.clear();
        status.printActiveAlarms();
        QStringList printed;
        for (int number : std::as_const(active))
            printed << QStringLiteral("C printActiveAlarms %1").arg(number);
        QCOMPARE(outletLines(capture), printed);
    }
};

QTEST_GUILESS_MAIN(TestChargerIntegration)
#include "tst_chargerintegration.moc"
