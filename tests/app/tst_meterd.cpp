#include "daemonenvironment.h"
#include "notifysocket.h"
#include "privatebus.h"
#include "testfiles.h"

#include <QProcess>
#include <QTest>

// The real daemon's life as the service manager sees it, beyond a normal start: a second
// instance, and command-line arguments.
class TestMeterd : public QObject
{
    Q_OBJECT

private:
    PrivateBus _bus;
    TestFiles _files;

    QProcessEnvironment environment(const NotifySocket &notify) const
    {
        return daemonEnvironment(_files, _bus.address(), notify.path());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_bus.isReady());
        _files.write("platform.ini", "[outlet]\nsize=1\n");
        _files.write("chargemanager.ini", "localcontroller=0\n");
        _files.write("platform.conf", "serialno=T1\n");
    }

    // The option is applied after platform.ini was read, so this run is still in normal mode;
    // options it does not know are ignored. A second daemon cannot take the bus name: it says
    // so and ends with status 0 without telling the service manager it is ready.
    void secondInstanceGivesUp()
    {
        NotifySocket notify;
        QProcess first;
        first.setProcessEnvironment(environment(notify));
        first.start(METERD_BINARY, { "--platform=/nonexistent/platform.ini", "--bogus", "-x" });
        QVERIFY(notify.receive(10000).startsWith("READY=1\n"));

        NotifySocket secondNotify;
        QProcess second;
        second.setProcessEnvironment(environment(secondNotify));
        second.start(METERD_BINARY);
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(secondNotify.receive(0), QByteArray());
        const QString log = QString::fromUtf8(second.readAllStandardError());
        QVERIFY2(log.contains("<3>[config] setup Failed to aquire D-Bus name com.ovra.slavecontroller")
                && log.contains("<3>[default] Failed to set up system manager, aborting!"),
            qPrintable(log));

        first.terminate();
        first.waitForFinished();
        QVERIFY(first.readAllStandardError().contains("Configuration read successfully"));
    }
};

QTEST_GUILESS_MAIN(TestMeterd)
#include "tst_meterd.moc"
