#include "daemonenvironment.h"
#include "notifysocket.h"
#include "privatebus.h"
#include "testfiles.h"

#include <QProcess>
#include <QTest>

// Runs the real daemon as the service manager would, with its notification socket.
class TestMeterd : public QObject
{
    Q_OBJECT

private:
    struct Run
    {
        QByteArray ready;
        qint64 pid = 0;
        QString log;
        bool exitedByItself = false;
        int exitCode = -1;
    };

    PrivateBus _bus;

    QProcessEnvironment environment(TestFiles &files, const NotifySocket &notify) const
    {
        return daemonEnvironment(files, _bus.address(), notify.path());
    }

    // Starts meterd on the given files, waits for readiness or its exit, stops it and returns
    // what it told the service manager and wrote to standard error.
    Run run(TestFiles &files, const QStringList &arguments = {}) const
    {
        NotifySocket notify;
        QProcess meterd;
        meterd.setProcessEnvironment(environment(files, notify));
        meterd.start(METERD_BINARY, arguments);
        Run result;
        if (!meterd.waitForStarted())
            return result;
        result.pid = meterd.processId();
        for (int waited = 0;
             waited < 100 && result.ready.isEmpty() && meterd.state() == QProcess::Running;
             ++waited) {
            result.ready = notify.receive(100);
            meterd.waitForFinished(0);
        }
        result.exitedByItself = meterd.state() == QProcess::NotRunning;
        meterd.terminate();
        meterd.waitForFinished();
        result.exitCode = meterd.exitCode();
        result.log = QString::fromUtf8(meterd.readAllStandardError());
        return result;
    }

    static void writeNormalConfiguration(TestFiles &files)
    {
        files.write("platform.ini", "[outlet]\nsize=1\n");
        files.write("chargemanager.ini", "localcontroller=0\n");
        files.write("platform.conf", "serialno=T1\n");
    }

private slots:
    void initTestCase() { QVERIFY(_bus.isReady()); }

    void normalMode()
    {
        TestFiles files;
        writeNormalConfiguration(files);
        const Run result = run(files);
        QCOMPARE(result.ready,
            QByteArray("READY=1\nSTATUS=Processing requests...\nMAINPID=")
                + QByteArray::number(result.pid));
        const QStringList lines = result.log.split('\n');
        QVERIFY2(
            lines.contains("<7>[config] Configuration read successfully"), qPrintable(result.log));
        QVERIFY(lines.contains("<6>[default] MeterManager, Version  " + QString(METERD_VERSION)));
        QVERIFY(
            lines.contains("<6>[default] Built with Qt 6.5.1 running on " + QString(qVersion())));
        QVERIFY(lines.contains("<6>[default] static QMap<QString, QString> "
                               "FirmwareEnvironmentUtil::environmentMap() \""
            + files.path("platform.conf") + "\""));
        QVERIFY(lines.contains("<6>[default] Using system bus"));
        QVERIFY(!result.log.contains("PTS mode"));
    }

    void nameAlreadyTaken()
    {
        TestFiles files;
        writeNormalConfiguration(files);
        NotifySocket notify;
        QProcess owner;
        owner.setProcessEnvironment(environment(files, notify));
        owner.start(METERD_BINARY);
        QVERIFY(!notify.receive(10000).isEmpty());

        const Run second = run(files);
        owner.terminate();
        owner.waitForFinished();
        QVERIFY(second.exitedByItself);
        QCOMPARE(second.exitCode, 0);
        QCOMPARE(second.ready, QByteArray());
        QVERIFY2(second.log.contains(
                     "<3>[config] setup Failed to aquire D-Bus name com.ovra.slavecontroller"),
            qPrintable(second.log));
        QVERIFY(second.log.contains("<3>[default] Failed to set up system manager, aborting!"));
    }

    void productionTestMode_data()
    {
        QTest::addColumn<bool>("platformIni");
        QTest::addColumn<bool>("chargemanagerIni");
        QTest::newRow("chargemanager.ini missing") << true << false;
        QTest::newRow("platform.ini missing") << false << true;
    }

    void productionTestMode()
    {
        QFETCH(bool, platformIni);
        QFETCH(bool, chargemanagerIni);
        TestFiles files;
        if (platformIni)
            files.write("platform.ini", "[outlet]\nsize=1\n");
        if (chargemanagerIni)
            files.write("chargemanager.ini", "localcontroller=0\n");
        files.write("platform.conf", "serialno=T1\n");
        const Run result = run(files);
        QVERIFY(result.ready.startsWith("READY=1\nSTATUS=Processing requests...\nMAINPID="));
        QVERIFY2(result.log.contains(
                     "<3>[config] !!! Could not read configuration, setting unit in PTS mode"),
            qPrintable(result.log));
        QVERIFY(!result.log.contains("MeterManager, Version"));
    }

    void unknownArgumentsAreIgnored()
    {
        TestFiles files;
        writeNormalConfiguration(files);
        const Run result = run(files, { "--platform=/nonexistent/platform.ini", "--bogus", "-x" });
        QVERIFY(result.ready.startsWith("READY=1\n"));
        // The option comes after platform.ini was read: this run is still in normal mode.
        QVERIFY(result.log.contains("Configuration read successfully"));
    }
};

QTEST_GUILESS_MAIN(TestMeterd)
#include "tst_meterd.moc"
