#include "chargemanagerdbusinterface.h"
#include "fakeservice.h"
#include "privatebus.h"

#include <QDBusConnectionInterface>
#include <QSignalSpy>
#include <QTest>

using namespace CommonTypes;

namespace {

using Requests = QList<std::pair<int, CpStateMode>>;

const QString sessionManagerService = QStringLiteral("com.tessaline.gridcontroller");

} // namespace

class TestChargeManagerDBusInterface : public QObject
{
    Q_OBJECT

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
};

QTEST_GUILESS_MAIN(TestChargeManagerDBusInterface)
#include "tst_chargemanagerdbusinterface.moc"
