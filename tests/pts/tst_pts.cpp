#include "clock.h"
#include "logcapture.h"
#include "notifysocket.h"
#include "privatebus.h"
#include "productiontestdaemon.h"
#include "pts.h"
#include "ptypair.h"
#include "testfiles.h"

#include <QProcess>
#include <QTest>

// The loop test as the factory line uses it: the real meterd on an unconfigured unit, called
// over a private system bus with busctl.
class TestPts : public QObject
{
    Q_OBJECT

private:
    PrivateBus _bus;

    QString testRs485() const
    {
        QProcess busctl;
        busctl.start("busctl",
            { "--address=" + _bus.address(), "call", "com.ovra.slavecontroller", "/pts",
                "com.ovra.outletmanager.pts", "TestRS485" });
        busctl.waitForFinished(30000);
        return QString::fromUtf8(busctl.readAllStandardOutput() + busctl.readAllStandardError())
            .trimmed();
    }

private slots:
    void initTestCase() { QVERIFY(_bus.isReady()); }

    // Wired ports pass every time; unwired ones fail, and the answering task gives up when no
    // request comes.
    void loopTest_data()
    {
        QTest::addColumn<bool>("wired");
        QTest::newRow("wired") << true;
        QTest::newRow("not wired") << false;
    }

    void loopTest()
    {
        QFETCH(bool, wired);
        PtyPair wire;
        PtyPair other;
        QVERIFY(wire.isReady() && other.isReady());
        ProductionTestDaemon daemon(
            _bus.address(), wire.first(), wired ? wire.second() : other.first());
        QVERIFY(
            daemon.readyMessage().startsWith("READY=1\nSTATUS=Processing requests...\nMAINPID="));
        const QString answer = wired ? "b true" : "b false";
        QCOMPARE(testRs485(), answer);
        QCOMPARE(testRs485(), answer);
        QVERIFY(!daemon.log().contains("MeasurementManager"));
        if (wired) {
            QCOMPARE(daemon.log().count("<6>[Pts] _ping Ping Pong successful"), 2);
        } else {
            QVERIFY2(daemon.log().contains("<3>[Pts] _ping Error in modbus read"),
                qPrintable(daemon.log()));
            QTRY_VERIFY_WITH_TIMEOUT(
                daemon.log().contains("<3>[Pts] _pong Error in modbus pong receive"), 5000);
        }
    }

    // Without its OCU port the test fails at once; the watchdog is fed all the same.
    void watchdogEvery45Seconds()
    {
        NotifySocket notify;
        ScopedEnvironment socket("NOTIFY_SOCKET", notify.path());
        ScopedEnvironment bus("DBUS_SYSTEM_BUS_ADDRESS", _bus.address());
        TestFiles absent;
        ScopedEnvironment ocu("CM_MODBUS_OCU_DEVICE", absent.path("ocu"));
        LogCapture log;
        Pts pts;
        QVERIFY(log.contains("Pts", QtCriticalMsg, "setupMaster Failed to connect master context"));
        QVERIFY(!pts.TestRS485());

        // Real time runs on beside the advanced clock; the margin keeps a loaded machine from
        // reaching the deadline before the test does.
        Clock::advance(44500);
        QCoreApplication::processEvents();
        QCOMPARE(notify.receive(50), QByteArray());
        Clock::advance(500);
        QCoreApplication::processEvents();
        QCOMPARE(notify.receive(1000), QByteArray("WATCHDOG=1\n"));
        Clock::advance(45000);
        QCoreApplication::processEvents();
        QCOMPARE(notify.receive(1000), QByteArray("WATCHDOG=1\n"));
    }
};

QTEST_GUILESS_MAIN(TestPts)
#include "tst_pts.moc"
