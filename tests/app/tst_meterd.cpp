#include "notifysocket.h"
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
    };

    // Starts meterd on the given files, waits for readiness (or exit), stops it and returns
    // what it told the service manager and wrote to standard error.
    static Run run(TestFiles &files, const QStringList &arguments = {})
    {
        NotifySocket notify;
        QProcess meterd;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("NOTIFY_SOCKET", notify.path());
        environment.insert("CM_PLATFORMINI", files.path("platform.ini"));
        environment.insert("CM_CHARGEMANAGERCONFIG", files.path("chargemanager.ini"));
        environment.insert("CM_PLATFORMCONFIG", files.path("platform.conf"));
        environment.insert("CM_CORVIXINI", files.path("corvix.ini"));
        environment.insert("CM_VERSIONFILE", files.path("version"));
        environment.remove("QT_LOGGING_RULES");
        meterd.setProcessEnvironment(environment);
        meterd.start(METERD_BINARY, arguments);
        Run result;
        if (!meterd.waitForStarted())
            return result;
        result.pid = meterd.processId();
        result.ready = notify.receive(10000);
        meterd.terminate();
        meterd.waitForFinished();
        result.log = QString::fromUtf8(meterd.readAllStandardError());
        return result;
    }

private slots:
    void normalMode()
    {
        TestFiles files;
        files.write("platform.ini", "[outlet]\nsize=1\n");
        files.write("chargemanager.ini", "localcontroller=0\n");
        files.write("platform.conf", "serialno=T1\n");
        const Run result = run(files);
        QCOMPARE(result.ready, QByteArray("READY=1\nSTATUS=Processing requests...\nMAINPID=")
                                       + QByteArray::number(result.pid));
        const QStringList lines = result.log.split('\n');
        QVERIFY2(lines.contains("<7>[config] Configuration read successfully"), qPrintable(result.log));
        QVERIFY(lines.contains("<6>[default] MeterManager, Version  " + QString(METERD_VERSION)));
        QVERIFY(lines.contains("<6>[default] Built with Qt 6.5.1 running on " + QString(qVersion())));
        QVERIFY(lines.contains("<6>[default] static QMap<QString, QString> FirmwareEnvironmentUtil::environmentMap() \""
                               + files.path("platform.conf") + "\""));
        QVERIFY(!result.log.contains("PTS mode"));
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
        QVERIFY2(result.log.contains("<3>[config] !!! Could not read configuration, setting unit in PTS mode"),
                 qPrintable(result.log));
        QVERIFY(!result.log.contains("MeterManager, Version"));
    }

    void unknownArgumentsAreIgnored()
    {
        TestFiles files;
        files.write("platform.ini", "[outlet]\nsize=1\n");
        files.write("chargemanager.ini", "localcontroller=0\n");
        files.write("platform.conf", "");
        const Run result = run(files, { "--platform=/nonexistent/platform.ini", "--bogus", "-x" });
        QVERIFY(result.ready.startsWith("READY=1\n"));
        // The option comes after platform.ini was read: this run is still in normal mode.
        QVERIFY(result.log.contains("Configuration read successfully"));
    }
};

QTEST_GUILESS_MAIN(TestMeterd)
#include "tst_meterd.moc"
