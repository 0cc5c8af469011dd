#include "clock.h"
#include "logcapture.h"
#include "notifysocket.h"
#include "privatebus.h"
#include "pts.h"
#include "ptypair.h"
#include "testfiles.h"

#include <QFile>
#include <QProcess>
#include <QTest>

// The loop test as the factory line uses it: the real meterd on an unconfigured unit (no
// chargemanager.ini, so in production-test mode), called over a private system bus with busctl.
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
        TestFiles files;
        files.write("platform.ini", "[outlet]\nsize=1\n");
        files.write("platform.conf", "");
        NotifySocket notify;
        QProcessEnvironment environment = files.daemonEnvironment(_bus.address(), notify.path());
        environment.insert("CM_MODBUS_OCU_DEVICE", wire.first());
        environment.insert("CM_MODBUS_EXT_DEVICE", wired ? wire.second() : other.first());
        QProcess daemon;
        daemon.setProcessEnvironment(environment);
        daemon.setStandardErrorFile(files.path("meterd.log"));
        daemon.start(METERD_BINARY, {});
        QVERIFY(
            notify.receive(10000).startsWith("READY=1\nSTATUS=Processing requests...\nMAINPID="));
        const QString answer = wired ? "b true" : "b false";
        QCOMPARE(testRs485(), answer);
        QCOMPARE(testRs485(), answer);
        const auto log = [&files] {
            QFile file(files.path("meterd.log"));
            return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
        };
        QVERIFY(!log().contains("MeasurementManager"));
        if (wired) {
            QCOMPARE(log().count("<6>[Pts] _ping Ping Pong successful"), 2);
        } else {
            QVERIFY2(log().contains("<3>[Pts] _ping Error in modbus read"), qPrintable(log()));
            QTRY_VERIFY_WITH_TIMEOUT(
                log().contains("<3>[Pts] _pong Error in modbus pong receive"), 5000);
        }
        daemon.terminate();
        QVERIFY(daemon.waitForFinished());
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
        for (const qint64 step : { 44500, 500, 45000 }) {
            Clock::advance(step);
            QCoreApplication::processEvents();
            QCOMPARE(notify.receive(step == 44500 ? 50 : 1000),
                step == 44500 ? QByteArray() : QByteArray("WATCHDOG=1\n"));
        }
    }
};

QTEST_GUILESS_MAIN(TestPts)
#include "tst_pts.moc"
