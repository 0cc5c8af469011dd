#include "configurationmanager.h"
#include "logcapture.h"
#include "privatebus.h"
#include "systemmanager.h"
#include "testfiles.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QTest>

class TestSystemManager : public QObject
{
    Q_OBJECT

private:
    PrivateBus _bus;

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
        QVERIFY(_bus.isReady());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", _bus.address().toLocal8Bit());
    }

    void requiredModbusMeters_data()
    {
        QTest::addColumn<QByteArray>("platformIni");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("message");
        const QStringList feedback { "modbus/1/7 2", "modbus/1/8 2" };
        QTest::newRow("two outlets")
            << QByteArray(
                   "[outlet]\nsize=2\n[outlet/1]\nenergymeter=2\n[outlet/2]\nenergymeter=4\n")
            << QStringList { "modbus/2/1 2", "modbus/2/2 4" } + feedback << "";
        QTest::newRow("one outlet, second not read")
            << QByteArray(
                   "[outlet]\nsize=1\n[outlet/1]\nenergymeter=4\n[outlet/2]\nenergymeter=7\n")
            << QStringList { "modbus/2/1 4" } + feedback << "";
        QTest::newRow("too many outlets")
            << QByteArray("[outlet]\nsize=3\n[outlet/1]\nenergymeter=2\n") << QStringList()
            << "requiredModbusMeters Unsupported number of ports: 3";
        QTest::newRow("no outlets") << QByteArray("[outlet]\nsize=0\n") << feedback << "";
        QTest::newRow("no meter configured")
            << QByteArray("[outlet]\nsize=1\n") << feedback
            << "requiredModbusMeters Invalid meter type -1 for outlet 1 , skipping...";
        for (int type : { 0, 1, 3 }) {
            QTest::addRow("type %d rejected", type)
                << QByteArray("[outlet]\nsize=2\n[outlet/1]\nenergymeter=")
                    + QByteArray::number(type) + "\n[outlet/2]\nenergymeter=2\n"
                << QStringList { "modbus/2/2 2" } + feedback
                << QStringLiteral(
                       "requiredModbusMeters Invalid meter type %1 for outlet 1 , skipping...")
                       .arg(type);
        }
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

    void noOcuUnits()
    {
        TestFiles files;
        SystemManager manager(configuration(files, "[outlet]\nsize=2\n"));
        LogCapture log;
        QVERIFY(manager.requiredModbusOcuUnits().isEmpty());
        QVERIFY(log.contains("config", QtInfoMsg,
            "requiredModbusOcuUnits No required OCU units for non-evse device"));
    }

    void loudGetters()
    {
        TestFiles files;
        SystemManager manager(configuration(files, "[outlet]\nsize=1\n"));
        LogCapture log;
        QVERIFY(!manager.getOutletController(1));
        QVERIFY(!manager.getEmbeddedStation());
        QVERIFY(log.contains("config", QtCriticalMsg,
            "getOutletController Attempted to get outlet controller for non-existing port 1 , "
            "returning null pointer, expect havoc to break loose!"));
        QVERIFY(log.contains("config", QtCriticalMsg,
            "getEmbeddedStation Attempted to get non-existing embedded station, returning null "
            "pointer, expect havoc to break loose!"));
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
};

QTEST_GUILESS_MAIN(TestSystemManager)
#include "tst_systemmanager.moc"
