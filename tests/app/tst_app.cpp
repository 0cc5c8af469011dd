#include "clock.h"
#include "configurationmanager.h"
#include "logcapture.h"
#include "messagepattern.h"
#include "metermanager.h"
#include "notifysocket.h"
#include "privatebus.h"
#include "systemmanager.h"
#include "testfiles.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QTest>

// The process: the watchdog, the command line and the log patterns, the system manager's meter
// lists and bus registration, and the real daemon as a second instance.
class TestApp : public QObject
{
    Q_OBJECT

private:
    PrivateBus _bus;
    PrivateBus _daemonBus;
    TestFiles _daemonFiles;

    // Moves the clock and lets the timers see it.
    static void advance(qint64 ms)
    {
        Clock::advance(ms);
        QCoreApplication::processEvents();
    }

    // A configuration with the given platform.ini and feedback meters at External/7 and 8.
    static QSharedPointer<ConfigurationManager> configuration(
        TestFiles &files, const QByteArray &platformIni)
    {
        files.useAsConfiguration(platformIni, "localcontroller=1\n");
        qputenv("CM_CORVIXINI",
            files.write("corvix.ini", "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/1/8\n")
                .toLocal8Bit());
        return QSharedPointer<ConfigurationManager>::create();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_bus.isReady() && _daemonBus.isReady());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", _bus.address().toLocal8Bit());
        _daemonFiles.write("platform.ini", "[outlet]\nsize=1\n");
        _daemonFiles.write("chargemanager.ini", "localcontroller=0\n");
        _daemonFiles.write("platform.conf", "serialno=T1\n");
    }

    void watchdogEvery45Seconds()
    {
        NotifySocket notify;
        ScopedEnvironment socket("NOTIFY_SOCKET", notify.path());
        MeterManager manager;
        manager.startWatchdog();

        for (int tick = 0; tick < 3; ++tick) {
            advance(44999);
            QCOMPARE(notify.receive(50), QByteArray());
            advance(1);
            QCOMPARE(notify.receive(1000), QByteArray("WATCHDOG=1\n"));
        }
    }

    // The journal's priority before the category; the terminal's colours; the plain text.
    void messagePatterns_data()
    {
        QTest::addColumn<int>("pattern");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("expected"); // the end of the line
        QTest::newRow("journal debug") << 0 << int(QtDebugMsg) << "<7>[modbus] text";
        QTest::newRow("journal info") << 0 << int(QtInfoMsg) << "<6>[modbus] text";
        QTest::newRow("journal warning") << 0 << int(QtWarningMsg) << "<4>[modbus] text";
        QTest::newRow("journal critical") << 0 << int(QtCriticalMsg) << "<3>[modbus] text";
        QTest::newRow("journal fatal") << 0 << int(QtFatalMsg) << "<2>[modbus] text";
        QTest::newRow("terminal info") << 1 << int(QtInfoMsg) << " [modbus] text";
        QTest::newRow("terminal warning")
            << 1 << int(QtWarningMsg) << "\033[1;33m[modbus] text\033[0m";
        QTest::newRow("terminal critical")
            << 1 << int(QtCriticalMsg) << "\033[31m[modbus] text\033[0m";
        QTest::newRow("plain") << 2 << int(QtInfoMsg) << "modbus: text";
    }

    void messagePatterns()
    {
        QFETCH(int, pattern);
        QFETCH(int, type);
        QFETCH(QString, expected);
        const std::function<void()> installers[] = { MessagePattern::installJournalPattern,
            MessagePattern::installTerminalPattern, MessagePattern::installPlainPattern };
        installers[pattern]();
        const QMessageLogContext context(nullptr, 0, nullptr, "modbus");
        const QString line = qFormatLogMessage(QtMsgType(type), context, "text");
        MessagePattern::installPlainPattern();
        QVERIFY2(pattern == 1 ? line.endsWith(expected)
                    && line.startsWith(QCoreApplication::applicationName() + " ")
                              : line == expected,
            qPrintable(line));
    }

    void requiredModbusMeters_data()
    {
        QTest::addColumn<QByteArray>("platformIni");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("message");
        const QStringList feedback { "modbus/1/7 2", "modbus/1/8 2" };
        QTest::newRow("two outlets, a third not read")
            << QByteArray("[outlet]\nsize=2\n[outlet/1]\nenergymeter=2\n[outlet/2]\nenergymeter=4\n"
                          "[outlet/3]\nenergymeter=2\n")
            << QStringList { "modbus/2/1 2", "modbus/2/2 4" } + feedback << "";
        QTest::newRow("too many outlets")
            << QByteArray("[outlet]\nsize=3\n[outlet/1]\nenergymeter=2\n") << QStringList()
            << "requiredModbusMeters Unsupported number of ports: 3";
        QTest::newRow("no meter configured")
            << QByteArray("[outlet]\nsize=1\n") << feedback
            << "requiredModbusMeters Invalid meter type -1 for outlet 1 , skipping...";
        QTest::newRow("type 3 rejected")
            << QByteArray(
                   "[outlet]\nsize=2\n[outlet/1]\nenergymeter=3\n[outlet/2]\nenergymeter=2\n")
            << QStringList { "modbus/2/2 2" } + feedback
            << "requiredModbusMeters Invalid meter type 3 for outlet 1 , skipping...";
    }

    void requiredModbusMeters()
    {
        QFETCH(QByteArray, platformIni);
        QFETCH(QStringList, expected);
        QFETCH(QString, message);
        TestFiles files;
        SystemManager manager(configuration(files, platformIni));
        LogCapture log;
        QStringList actual;
        for (const RequiredModbusMeter &meter : manager.requiredModbusMeters())
            actual << meter.path.toString() + " " + QString::number(meter.type);
        QCOMPARE(actual, expected);
        if (!message.isEmpty())
            QCOMPARE(log.count("config",
                         message.contains("Unsupported") ? QtCriticalMsg : QtWarningMsg, message),
                1);
        if (!expected.isEmpty())
            QVERIFY(log.contains("config", QtInfoMsg,
                QStringLiteral("requiredModbusMeters %1 total required modbus meters")
                    .arg(expected.size())));
    }

    void setupRegistersTheService()
    {
        TestFiles files;
        SystemManager manager(configuration(files, "[outlet]\nsize=0\n"));
        LogCapture log;
        QVERIFY(manager.setup());
        QVERIFY(log.contains("default", QtInfoMsg, "Using system bus"));
        QVERIFY(QDBusConnection::systemBus().interface()->isServiceRegistered(
            "com.ovra.slavecontroller"));

        // The object path is taken now: a second set-up fails after taking the name.
        SystemManager second(configuration(files, "[outlet]\nsize=0\n"));
        QVERIFY(!second.setup());
        QVERIFY(log.contains("config", QtCriticalMsg,
            "setup Failed to register D-Bus object at /MeasurementManager"));
    }

    // The option is applied after platform.ini was read, so this run is still in normal mode;
    // options it does not know are ignored. A second daemon cannot take the bus name: it says
    // so and ends with status 0 without telling the service manager it is ready.
    void secondInstanceGivesUp()
    {
        NotifySocket notify;
        QProcess first;
        first.setProcessEnvironment(
            _daemonFiles.daemonEnvironment(_daemonBus.address(), notify.path()));
        first.start(METERD_BINARY, { "--platform=/nonexistent/platform.ini", "--bogus", "-x" });
        QVERIFY(notify.receive(10000).startsWith("READY=1\n"));

        NotifySocket secondNotify;
        QProcess second;
        second.setProcessEnvironment(
            _daemonFiles.daemonEnvironment(_daemonBus.address(), secondNotify.path()));
        second.start(METERD_BINARY);
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(secondNotify.receive(0), QByteArray());
        const QString log = QString::fromUtf8(second.readAllStandardError());
        QVERIFY2(
            log.contains("<3>[config] setup Failed to aquire D-Bus name com.ovra.slavecontroller")
                && log.contains("<3>[default] Failed to set up system manager, aborting!"),
            qPrintable(log));

        first.terminate();
        first.waitForFinished();
        QVERIFY(first.readAllStandardError().contains("Configuration read successfully"));
    }
};

QTEST_GUILESS_MAIN(TestApp)
#include "tst_app.moc"
