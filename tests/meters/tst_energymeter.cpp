#include "clock.h"
#include "energymeter.h"
#include "fakeenergymeter.h"
#include "logcapture.h"
#include "meterregistry.h"

#include <QTest>

#include <cmath>
#include <limits>

namespace {

constexpr double nanValue = std::numeric_limits<double>::quiet_NaN();

using TestMeter = FakeEnergyMeter;

// Records what the lookup asked for.
class FakeRegistry : public MeterRegistry
{
public:
    FakeRegistry() { registerInstance(); }

    EnergyMeter *meterAt(const ModbusPath &path) override
    {
        asked = path.toString();
        return &meter;
    }
    EnergyMeter *tcpMeterAt(const QString &address) override
    {
        asked = address;
        return &meter;
    }

    TestMeter meter { QStringLiteral("fake") };
    QString asked;
};

const char *const lookup = "static EnergyMeter* EnergyMeter::getMeterForPath(const QString&) ";

} // namespace

class TestEnergyMeter : public QObject
{
    Q_OBJECT

private slots:
    void freshMeterIsNotFound()
    {
        const TestMeter meter(QStringLiteral("fresh"));
        QCOMPARE(meter.status(), ERROR_UNKNOWN);
        const QVariantMap values = meter.metervalues();
        const QStringList keys { "last_update", "energymeter_status", "status", "total_energy",
            "total_energy_exported", "session_energy", "session_energy_exported", "power",
            "current1", "current2", "current3", "voltage1", "voltage2", "voltage3", "power_factor1",
            "power_factor2", "power_factor3", "frequency" };
        QCOMPARE(values.size(), keys.size());
        for (const QString &key : keys)
            QVERIFY2(values.contains(key), qPrintable(key));
        QCOMPARE(values.value("status").toString(), QStringLiteral("NotFound"));
        QCOMPARE(values.value("energymeter_status").metaType(), QMetaType::fromType<qint32>());
        QCOMPARE(values.value("energymeter_status").toInt(), -1);
        QCOMPARE(values.value("last_update").metaType(), QMetaType::fromType<quint32>());
        QVERIFY(std::isnan(values.value("current2").toDouble()));
        QVERIFY(std::isnan(values.value("total_energy").toDouble()));
    }

    void staleAfterTwentySeconds()
    {
        TestMeter meter(QStringLiteral("stale"));
        LogCapture log;
        meter.reading();
        QCOMPARE(meter.status(), OK);
        QCOMPARE(log.count("meter.stale", QtInfoMsg, "_updateStatus Status changed to \"OK\""), 1);

        Clock::advance(19999);
        QCoreApplication::processEvents();
        QCOMPARE(meter.status(), OK);
        Clock::advance(1);
        QTRY_COMPARE(meter.status(), ERROR_CONNECTION);
        QCOMPARE(meter.metervalues().value("status").toString(), QStringLiteral("Faulty"));
        QCOMPARE(log.count("meter.stale", QtWarningMsg,
                     "_updateStatus Status changed to \"ERROR_CONNECTION\""),
            1);

        Clock::advance(60000);
        QCoreApplication::processEvents();
        QCOMPARE(log.count("Status changed"), 2);

        meter.reading();
        QCOMPARE(meter.status(), OK);
        meter.reading();
        QCOMPARE(log.count("Status changed"), 3);
    }

    void readingsKeepTheMeterConnected()
    {
        TestMeter meter(QStringLiteral("steady"));
        meter.reading();
        for (int i = 0; i < 5; ++i) {
            Clock::advance(15000);
            QCoreApplication::processEvents();
            meter.reading();
        }
        QCOMPARE(meter.status(), OK);
    }

    void categoryName()
    {
        QCOMPARE(
            TestMeter(QStringLiteral("modbus.7")).categoryName(), QStringLiteral("meter.modbus.7"));
        const QString longName(100, QLatin1Char('x'));
        QCOMPARE(TestMeter(longName).categoryName(), QStringLiteral("meter.") + longName.left(57));
    }

    void maxCurrent_data()
    {
        QTest::addColumn<double>("i1");
        QTest::addColumn<double>("i2");
        QTest::addColumn<double>("i3");
        QTest::addColumn<double>("expected");
        QTest::newRow("all nan") << nanValue << nanValue << nanValue << nanValue;
        QTest::newRow("largest") << 1.0 << 7.5 << 3.0 << 7.5;
        QTest::newRow("absolute value") << -9.0 << 2.0 << 3.0 << 9.0;
        QTest::newRow("nan ignored") << nanValue << 4.0 << nanValue << 4.0;
    }

    void maxCurrent()
    {
        QFETCH(double, i1);
        QFETCH(double, i2);
        QFETCH(double, i3);
        QFETCH(double, expected);
        TestMeter meter(QStringLiteral("currents"));
        meter.currents[0] = i1;
        meter.currents[1] = i2;
        meter.currents[2] = i3;
        if (std::isnan(expected))
            QVERIFY(std::isnan(meter.maxCurrent()));
        else
            QCOMPARE(meter.maxCurrent(), expected);
    }

    void getMeterForPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<QString>("message");
        QTest::newRow("external") << "modbus/1/7"
                                  << "modbus/1/7"
                                  << "";
        QTest::newRow("internal") << "modbus/2/5"
                                  << "modbus/2/5"
                                  << "";
        QTest::newRow("address cut to 8 bits") << "modbus/1/300"
                                               << "modbus/1/44"
                                               << "";
        QTest::newRow("tcp") << "modbus/192.168.0.10"
                             << "192.168.0.10"
                             << "";
        QTest::newRow("tcp canonical form") << "modbus/0:0::1"
                                            << "::1"
                                            << "";
        QTest::newRow("bad channel") << "modbus/3/5"
                                     << ""
                                     << "Invalid modbus channel:  3";
        QTest::newRow("channel not a number") << "modbus/x/5"
                                              << ""
                                              << "\"x\"  not a number!";
        QTest::newRow("address not a number") << "modbus/1/"
                                              << ""
                                              << "\"\"  not a number!";
        QTest::newRow("bad address") << "modbus/abc"
                                     << ""
                                     << "\"abc\" is not a valid IP address!";
        QTest::newRow("too many parts") << "modbus/1/2/3"
                                        << ""
                                        << "Incorrect path:  \"modbus/1/2/3\"";
        QTest::newRow("only modbus") << "modbus"
                                     << ""
                                     << "Incorrect path:  \"modbus\"";
        QTest::newRow("trafo") << "trafo/1"
                               << ""
                               << "Upstream trafo measurement not implemented";
        QTest::newRow("trafo not a number") << "trafo/x"
                                            << ""
                                            << "\"x\"  not a number";
        QTest::newRow("trafo parts") << "trafo/1/2"
                                     << ""
                                     << "Incorrect path:  \"trafo/1/2\"";
        QTest::newRow("pulse") << "pulse/3"
                               << ""
                               << "Upstream pulse/trafo measurement not implemented";
        QTest::newRow("null meter") << "NULL:N/A"
                                    << ""
                                    << "Unknown path:  \"NULL:N/A\"";
        QTest::newRow("empty") << ""
                               << ""
                               << "Unknown path:  \"\"";
        QTest::newRow("capital") << "Modbus/1/7"
                                 << ""
                                 << "Unknown path:  \"Modbus/1/7\"";
    }

    void getMeterForPath()
    {
        QFETCH(QString, path);
        QFETCH(QString, asked);
        QFETCH(QString, message);
        FakeRegistry registry;
        LogCapture log;
        EnergyMeter *found = EnergyMeter::getMeterForPath(path);
        QCOMPARE(registry.asked, asked);
        QCOMPARE(found != nullptr, !asked.isEmpty());
        if (message.isEmpty()) {
            QCOMPARE(log.lines().size(), 0);
        } else {
            QCOMPARE(log.count("default", QtCriticalMsg, QString(lookup) + message), 1);
        }
    }

    void upstreamLogsUnimplemented()
    {
        FakeRegistry registry;
        LogCapture log;
        QVERIFY(!EnergyMeter::getMeterForPath("trafo/1"));
        QCOMPARE(log.count("default", QtWarningMsg, QString(lookup) + "Unimplemented code."), 1);
    }

    void noRegistry()
    {
        QVERIFY(!MeterRegistry::instance());
        QVERIFY(!EnergyMeter::getMeterForPath("modbus/1/7"));
    }
};

QTEST_GUILESS_MAIN(TestEnergyMeter)
#include "tst_energymeter.moc"
