#include "configurationmanager.h"
#include "logcapture.h"
#include "testfiles.h"

#include <QTest>

#include <memory>

namespace {

// Configuration files of one test and the variables that point the manager at them.
class Unit
{
public:
    Unit(const QByteArray &platformIni, const QByteArray &chargemanagerIni,
        const QByteArray &platformConf = "serialno=S1\n")
        : _platform("CM_PLATFORMINI", write("platform.ini", platformIni))
        , _chargemanager("CM_CHARGEMANAGERCONFIG", write("chargemanager.ini", chargemanagerIni))
        , _environment("CM_PLATFORMCONFIG", write("platform.conf", platformConf))
        , _corvix("CM_CORVIXINI", _files.path("corvix.ini"))
        , _version("CM_VERSIONFILE", _files.path("version"))
    {
    }

    TestFiles &files() { return _files; }
    std::unique_ptr<ConfigurationManager> manager()
    {
        return std::make_unique<ConfigurationManager>();
    }

private:
    // A null content leaves the file absent.
    QString write(const QString &name, const QByteArray &content)
    {
        return content.isNull() ? _files.path(name) : _files.write(name, content);
    }

    TestFiles _files;
    ScopedEnvironment _platform;
    ScopedEnvironment _chargemanager;
    ScopedEnvironment _environment;
    ScopedEnvironment _corvix;
    ScopedEnvironment _version;
};

const QByteArray platformIni
    = "[outlet]\nsize=1\n[outlet/"
      "1]\nenergymeter=2\n[system]\nvendor=PlatformVendor\nmodel=PlatformModel\n";
const QByteArray chargemanagerIni
    = "localcontroller=1\n[ocpp]\nAuthCacheLifeTime=77\n[outlet/1]\nevse_id=NL*OVR*E1\n";

} // namespace

class TestConfigurationManager : public QObject
{
    Q_OBJECT

private slots:
    void readsBothFiles()
    {
        Unit unit(platformIni, chargemanagerIni);
        LogCapture log;
        auto manager = unit.manager();
        QVERIFY(!manager->isPtsMode());
        QVERIFY(log.contains("config", QtDebugMsg, "Configuration read successfully"));
        QCOMPARE(log.count("Using hard-coded"), 0);
    }

    void ptsMode_data()
    {
        QTest::addColumn<QByteArray>("platform");
        QTest::addColumn<QByteArray>("chargemanager");
        QTest::newRow("platform.ini missing") << QByteArray() << chargemanagerIni;
        QTest::newRow("chargemanager.ini missing") << platformIni << QByteArray();
        QTest::newRow("both missing") << QByteArray() << QByteArray();
        QTest::newRow("platform.ini malformed")
            << QByteArray("[outlet\nsize=1\n") << chargemanagerIni;
    }

    void ptsMode()
    {
        QFETCH(QByteArray, platform);
        QFETCH(QByteArray, chargemanager);
        Unit unit(platform, chargemanager);
        LogCapture log;
        auto manager = unit.manager();
        QVERIFY(manager->isPtsMode());
        QCOMPARE(log.count("config", QtCriticalMsg,
                     "!!! Could not read configuration, setting unit in PTS mode"),
            1);
        QVERIFY(!log.contains("config", QtDebugMsg, "Configuration read successfully"));
    }

    void ptsModeStillReadsPlatformIni()
    {
        Unit unit(platformIni, QByteArray());
        auto manager = unit.manager();
        QVERIFY(manager->isPtsMode());
        QCOMPARE(manager->intValue(Settings::OutletSize), 1);
        QCOMPARE(manager->intValue(Settings::AuthCacheLifeTime), 2592000);
    }

    void emptyVariableMeansBuiltInPath()
    {
        Unit unit(platformIni, chargemanagerIni);
        ScopedEnvironment empty("CM_PLATFORMINI", QString());
        LogCapture log;
        auto manager = unit.manager();
        QCOMPARE(log.count("config", QtWarningMsg,
                     "_readPlatformIni Using hard-coded platform.ini path: "
                     "\"/mnt/data/etc/platform.ini\""),
            1);
        QCOMPARE(log.count("_readChargemanagerIni"), 0);
    }

    void valueByStorageClass_data()
    {
        QTest::addColumn<quint32>("setting");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("C stored") << quint32(Settings::AuthCacheLifeTime) << QVariant("77");
        QTest::newRow("C default") << quint32(Settings::Fuse) << QVariant(16);
        QTest::newRow("C stored in group")
            << quint32(Settings::Outlet1EvseId) << QVariant("NL*OVR*E1");
        QTest::newRow("P stored") << quint32(Settings::OutletSize) << QVariant("1");
        QTest::newRow("P default") << quint32(Settings::ModbusBaudrate) << QVariant(9600);
        QTest::newRow("E stored") << quint32(Settings::Serialno) << QVariant("S1");
        QTest::newRow("E default") << quint32(Settings::HwRev) << QVariant("N/A");
        QTest::newRow("V max keys") << quint32(Settings::GetConfigurationMaxKeys) << QVariant(189);
        QTest::newRow("V profiles")
            << quint32(Settings::SupportedFeatureProfiles)
            << QVariant("Core, FirmwareManagement, LocalAuthListManagement, "
                        "Reservation, SmartCharging, RemoteTrigger");
        QTest::newRow("V vendor") << quint32(Settings::ChargingStationVendor)
                                  << QVariant("PlatformVendor");
        QTest::newRow("V firmware version")
            << quint32(Settings::FirmwareVersion) << QVariant("N/A");
    }

    void valueByStorageClass()
    {
        QFETCH(quint32, setting);
        QFETCH(QVariant, expected);
        Unit unit(platformIni, chargemanagerIni);
        auto manager = unit.manager();
        QCOMPARE(manager->value(Setting::fromIndex(setting)).variant(), expected);
    }

    void missingFileReadsDefaults()
    {
        Unit unit(QByteArray(), QByteArray(), "");
        auto manager = unit.manager();
        QCOMPARE(manager->value(Settings::OutletSize).variant(), QVariant(2));
        QCOMPARE(manager->value(Settings::Localcontroller).variant(), QVariant(0));
        QCOMPARE(manager->value(Settings::Serialno).variant(), QVariant("N/A"));
    }

    void firmwareVersion()
    {
        Unit unit(platformIni, chargemanagerIni);
        unit.files().write("version", "  4.2.0-rc1  \nsecond line\n");
        auto manager = unit.manager();
        QCOMPARE(manager->value(Settings::FirmwareVersion).toString(), QStringLiteral("4.2.0-rc1"));
    }

    void unimplementedVirtualSettings_data()
    {
        QTest::addColumn<quint32>("setting");
        QTest::addColumn<QString>("category");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("message");
        QTest::newRow("heartbeat")
            << quint32(Settings::HeartbeatInterval) << "default" << int(QtWarningMsg)
            << "SettingValue ConfigurationManager::_readVirtualSetting(Setting) const "
               "Unimplemented code.";
        QTest::newRow("modem firmware") << quint32(Settings::ModemFirmware) << "default"
                                        << int(QtWarningMsg) << "Unimplemented code.";
        QTest::newRow("other virtual")
            << quint32(Settings::ChargeProfileMaxStackLevel) << "config" << int(QtCriticalMsg)
            << "Unhandled parameter! \"ocpp/ChargeProfileMaxStackLevel\" \"20\" 5";
        QTest::newRow("invalid setting")
            << quint32(Settings::Invalid) << "config" << int(QtCriticalMsg)
            << "Unhandled parameter! \"\" \"\" 190";
    }

    void unimplementedVirtualSettings()
    {
        QFETCH(quint32, setting);
        QFETCH(QString, category);
        QFETCH(int, type);
        QFETCH(QString, message);
        Unit unit(platformIni, chargemanagerIni);
        auto manager = unit.manager();
        LogCapture log;
        QVERIFY(!manager->value(Setting::fromIndex(setting)).isValid());
        QCOMPARE(log.count(category, QtMsgType(type), message), 1);
    }

    void identityReaders_data()
    {
        QTest::addColumn<QByteArray>("environment");
        QTest::addColumn<QString>("vendor");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("modelVersion");
        QTest::newRow("environment wins")
            << QByteArray("vendor=EnvVendor\nmodel=EnvModel\nmodelversion=3\n") << "EnvVendor"
            << "EnvModel"
            << "3";
        QTest::newRow("platform.ini fallback") << QByteArray("serialno=1\n") << "PlatformVendor"
                                               << "PlatformModel"
                                               << "N/A";
    }

    void identityReaders()
    {
        QFETCH(QByteArray, environment);
        QFETCH(QString, vendor);
        QFETCH(QString, model);
        QFETCH(QString, modelVersion);
        Unit unit(platformIni + "modelversion=9\n", chargemanagerIni, environment);
        auto manager = unit.manager();
        QCOMPARE(manager->value(Settings::ChargingStationVendor).toString(), vendor);
        QCOMPARE(manager->value(Settings::ChargingStationModel).toString(), model);
        QCOMPARE(manager->value(Settings::ChargingStationModelVersion).toString(), modelVersion);
    }

    void identityWithoutAnySource()
    {
        Unit unit("[outlet]\nsize=1\n", chargemanagerIni, "");
        auto manager = unit.manager();
        QCOMPARE(manager->vendor().toString(), QStringLiteral("N/A"));
        QCOMPARE(manager->model().toString(), QStringLiteral("N/A"));
    }

    void outletReaders()
    {
        Unit unit(platformIni + "[outlet/2]\nplc_capable=1\n", chargemanagerIni);
        auto manager = unit.manager();
        QCOMPARE(manager->evseId(1).toString(), QStringLiteral("NL*OVR*E1"));
        QCOMPARE(manager->evseId(2).toString(), QStringLiteral("ZZ000E2"));
        QCOMPARE(manager->chargeModePriority(1).toString(), QStringLiteral("only_basic"));
        QCOMPARE(manager->plcModem(2).toString(), QStringLiteral("none"));
        QCOMPARE(manager->plcCapable(2).toInt(), 1);
        LogCapture log;
        QVERIFY(!manager->evseId(3).isValid());
        QVERIFY(!manager->plcCapable(4294967295u).isValid());
        QCOMPARE(log.count("Unhandled parameter!"), 2);
    }

    void requiredMeters_data()
    {
        QTest::addColumn<QByteArray>("chargemanager");
        QTest::addColumn<QByteArray>("corvix");
        QTest::addColumn<int>("rtu");
        QTest::addColumn<QStringList>("tcp");
        const QByteArray corvix
            = "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/127.0.0.2\n[c]\nmeterpath=modbus/2/9\n";
        QTest::newRow("active") << QByteArray("localcontroller=1\n") << corvix << 2
                                << QStringList { "127.0.0.2" };
        QTest::newRow("no local controller")
            << QByteArray("localcontroller=0\n") << corvix << 0 << QStringList();
        QTest::newRow("home meter kind")
            << QByteArray("localcontroller=2\n") << corvix << 0 << QStringList();
        QTest::newRow("no corvix.ini")
            << QByteArray("localcontroller=1\n") << QByteArray() << 0 << QStringList();
    }

    void requiredMeters()
    {
        QFETCH(QByteArray, chargemanager);
        QFETCH(QByteArray, corvix);
        QFETCH(int, rtu);
        QFETCH(QStringList, tcp);
        Unit unit(platformIni, chargemanager);
        if (!corvix.isNull())
            unit.files().write("corvix.ini", corvix);
        auto manager = unit.manager();
        LogCapture log;
        const QList<RequiredModbusMeter> meters = manager->requiredModbusMeters();
        QCOMPARE(meters.size(), rtu);
        for (const RequiredModbusMeter &meter : meters)
            QCOMPARE(meter.type, EnergyMeterTypes::ModbusRtu);
        QCOMPARE(manager->requiredTCPModbusMeters(), tcp);
        if (rtu > 0) {
            QCOMPARE(meters.first().path, (ModbusPath { Channel::External, 7 }));
            QCOMPARE(meters.last().path, (ModbusPath { Channel::Internal, 9 }));
            QVERIFY(log.contains(
                "config", QtDebugMsg, "requiredModbusMeters 2 required feedback modbus meters"));
            QVERIFY(log.contains("config", QtDebugMsg,
                "requiredTCPModbusMeters 1 required feedback modbus TCP meters"));
        } else {
            QCOMPARE(log.count("CxUtil"), 0);
        }
    }
};

QTEST_GUILESS_MAIN(TestConfigurationManager)
#include "tst_configurationmanager.moc"
