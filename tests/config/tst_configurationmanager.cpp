#include "configurationmanager.h"
#include "cxutil.h"
#include "logcapture.h"
#include "testfiles.h"

#include <QTest>

#include <memory>

namespace {

// Configuration files of one test and the variables that point the manager at them. A null
// content leaves the file absent.
class Unit
{
public:
    Unit(const QByteArray &platformIni, const QByteArray &chargemanagerIni,
        const QByteArray &platformConf = "serialno=S1\n", const QByteArray &corvixIni = {})
        : _platform("CM_PLATFORMINI", write("platform.ini", platformIni))
        , _chargemanager("CM_CHARGEMANAGERCONFIG", write("chargemanager.ini", chargemanagerIni))
        , _environment("CM_PLATFORMCONFIG", write("platform.conf", platformConf))
        , _corvix("CM_CORVIXINI", write("corvix.ini", corvixIni))
        , _version("CM_VERSIONFILE", write("version", "  4.2.0-rc1  \nsecond line\n"))
    {
    }

    std::unique_ptr<ConfigurationManager> manager() const
    {
        return std::make_unique<ConfigurationManager>();
    }

private:
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

const QByteArray platformIni = "[outlet]\nsize=1\n[outlet/1]\nenergymeter=2\n[system]\n"
                               "vendor=PlatformVendor\nmodel=PlatformModel\nmodelversion=9\n";
const QByteArray chargemanagerIni
    = "localcontroller=1\n[ocpp]\nAuthCacheLifeTime=77\n[outlet/1]\nevse_id=NL*OVR*E1\n";

} // namespace

class TestConfigurationManager : public QObject
{
    Q_OBJECT

private slots:
    // An unreadable platform.ini or chargemanager.ini puts the unit in production-test mode;
    // whatever could be read is still answered.
    void runMode_data()
    {
        QTest::addColumn<QByteArray>("platform");
        QTest::addColumn<QByteArray>("chargemanager");
        QTest::addColumn<bool>("ptsMode");
        QTest::newRow("both read") << platformIni << chargemanagerIni << false;
        QTest::newRow("platform.ini missing") << QByteArray() << chargemanagerIni << true;
        QTest::newRow("chargemanager.ini missing") << platformIni << QByteArray() << true;
        QTest::newRow("platform.ini malformed")
            << QByteArray("[outlet\nfuse=1\n") << chargemanagerIni << true;
    }

    void runMode()
    {
        QFETCH(QByteArray, platform);
        QFETCH(QByteArray, chargemanager);
        QFETCH(bool, ptsMode);
        Unit unit(platform, chargemanager);
        LogCapture log;
        auto manager = unit.manager();
        QCOMPARE(manager->isPtsMode(), ptsMode);
        QCOMPARE(log.count("config", QtCriticalMsg,
                     "!!! Could not read configuration, setting unit in PTS mode"),
            ptsMode ? 1 : 0);
        QCOMPARE(log.count("config", QtDebugMsg, "Configuration read successfully"), !ptsMode);
        QCOMPARE(log.count("Using hard-coded"), 0);
        QCOMPARE(manager->intValue(Settings::OutletSize), platform == platformIni ? 1 : 2);
        QCOMPARE(manager->intValue(Settings::AuthCacheLifeTime),
            chargemanager.isNull() ? 2592000 : 77);
    }

    void emptyVariableMeansBuiltInPath()
    {
        Unit unit(platformIni, chargemanagerIni);
        ScopedEnvironment empty("CM_PLATFORMINI", QString());
        LogCapture log;
        unit.manager();
        QCOMPARE(log.count("config", QtWarningMsg,
                     "_readPlatformIni Using hard-coded platform.ini path: "
                     "\"/mnt/data/etc/platform.ini\""),
            1);
        QCOMPARE(log.count("_readChargemanagerIni"), 0);
    }

    // A value by its storage class: the two INI files, the firmware environment, or computed.
    void values_data()
    {
        QTest::addColumn<QByteArray>("environment");
        QTest::addColumn<quint32>("setting");
        QTest::addColumn<QVariant>("expected");
        const QByteArray env = "serialno=S1\n";
        const QByteArray identity = "vendor=EnvVendor\nmodel=EnvModel\nmodelversion=3\n";
        QTest::newRow("C stored") << env << quint32(Settings::AuthCacheLifeTime) << QVariant("77");
        QTest::newRow("C default") << env << quint32(Settings::Fuse) << QVariant(16);
        QTest::newRow("C in a group")
            << env << quint32(Settings::Outlet1EvseId) << QVariant("NL*OVR*E1");
        QTest::newRow("P stored") << env << quint32(Settings::OutletSize) << QVariant("1");
        QTest::newRow("P default") << env << quint32(Settings::ModbusBaudrate) << QVariant(9600);
        QTest::newRow("E stored") << env << quint32(Settings::Serialno) << QVariant("S1");
        QTest::newRow("E default") << env << quint32(Settings::HwRev) << QVariant("N/A");
        QTest::newRow("V max keys") << env << quint32(Settings::GetConfigurationMaxKeys)
                                    << QVariant(189);
        QTest::newRow("V firmware version, first line trimmed")
            << env << quint32(Settings::FirmwareVersion) << QVariant("4.2.0-rc1");
        QTest::newRow("V vendor from platform.ini")
            << env << quint32(Settings::ChargingStationVendor) << QVariant("PlatformVendor");
        QTest::newRow("V model from platform.ini")
            << env << quint32(Settings::ChargingStationModel) << QVariant("PlatformModel");
        QTest::newRow("V model version only from the environment")
            << env << quint32(Settings::ChargingStationModelVersion) << QVariant("N/A");
        QTest::newRow("V vendor from the environment")
            << identity << quint32(Settings::ChargingStationVendor) << QVariant("EnvVendor");
        QTest::newRow("V model from the environment")
            << identity << quint32(Settings::ChargingStationModel) << QVariant("EnvModel");
        QTest::newRow("V model version from the environment")
            << identity << quint32(Settings::ChargingStationModelVersion) << QVariant("3");
    }

    void values()
    {
        QFETCH(QByteArray, environment);
        QFETCH(quint32, setting);
        QFETCH(QVariant, expected);
        Unit unit(platformIni, chargemanagerIni, environment);
        QCOMPARE(unit.manager()->value(Setting::fromIndex(setting)).variant(), expected);
    }

    void identityWithoutAnySource()
    {
        Unit unit("[outlet]\nsize=1\n", chargemanagerIni, "");
        auto manager = unit.manager();
        QCOMPARE(manager->vendor().toString(), QStringLiteral("N/A"));
        QCOMPARE(manager->model().toString(), QStringLiteral("N/A"));
    }

    void unimplementedVirtualSettings_data()
    {
        QTest::addColumn<quint32>("setting");
        QTest::addColumn<QString>("category");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("message");
        QTest::newRow("heartbeat") << quint32(Settings::HeartbeatInterval) << "default"
                                   << int(QtWarningMsg)
                                   << "SettingValue ConfigurationManager::_readVirtualSetting"
                                      "(Setting) const Unimplemented code.";
        QTest::newRow("other virtual")
            << quint32(Settings::ChargeProfileMaxStackLevel) << "config" << int(QtCriticalMsg)
            << "Unhandled parameter! \"ocpp/ChargeProfileMaxStackLevel\" \"20\" 5";
        QTest::newRow("invalid setting") << quint32(Settings::Invalid) << "config"
                                         << int(QtCriticalMsg) << "Unhandled parameter! \"\" \"\" 190";
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

    // The feedback meters of corvix.ini, read only when the charge manager runs a local grid
    // with feedback meters and the file is there.
    void feedbackMeters_data()
    {
        QTest::addColumn<QByteArray>("chargemanager");
        QTest::addColumn<QByteArray>("corvix");
        QTest::addColumn<QStringList>("rtu");
        QTest::addColumn<QStringList>("tcp");
        QTest::addColumn<int>("deprecated");
        const QByteArray feedback = "localcontroller=1\n";
        const QByteArray mixed
            = "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/127.0.0.2\n[c]\nmeterpath=modbus/2/9\n";
        QTest::newRow("rtu, tcp and a deprecated key")
            << feedback << mixed << QStringList { "modbus/1/7", "modbus/2/9" }
            << QStringList { "127.0.0.2" } << 1;
        QTest::newRow("no local controller")
            << QByteArray("localcontroller=0\n") << mixed << QStringList() << QStringList() << 0;
        QTest::newRow("home meter kind")
            << QByteArray("localcontroller=2\n") << mixed << QStringList() << QStringList() << 0;
        QTest::newRow("no corvix.ini")
            << feedback << QByteArray() << QStringList() << QStringList() << 0;
        QTest::newRow("file order, duplicates kept")
            << feedback
            << QByteArray("[a]\nmeter=modbus/1/9\n[b]\nmeter=modbus/2/3\n[c]\nmeter=modbus/1/9\n")
            << QStringList { "modbus/1/9", "modbus/2/3", "modbus/1/9" } << QStringList() << 0;
        QTest::newRow("both deprecated keys, never tcp")
            << feedback
            << QByteArray("[old]\ngcumeter=modbus/1/4\nmeterpath=modbus/1/5\n[tcp]\n"
                          "gcumeter=modbus/10.0.0.1\n")
            << QStringList { "modbus/1/4", "modbus/1/5" } << QStringList() << 3;
        QTest::newRow("ipv6") << feedback << QByteArray("[a]\nmeter=\"modbus/::1\"\n")
                              << QStringList() << QStringList { "::1" } << 0;
        QTest::newRow("entries that are neither")
            << feedback
            << QByteArray("[a]\nmeter=modbus/192.168.0.10/5\n[b]\nmeter=MODBUS/192.168.0.10\n"
                          "[c]\nmeter=modbus/not-an-address\n[d]\nmeter=modbus/3/7\n"
                          "[e]\nmeter=modbus/1/0\n[f]\nmeter=modbus/1/7,modbus/1/8\n"
                          "[g]\nmeters=modbus/1/3\n")
            << QStringList() << QStringList() << 0;
    }

    void feedbackMeters()
    {
        QFETCH(QByteArray, chargemanager);
        QFETCH(QByteArray, corvix);
        QFETCH(QStringList, rtu);
        QFETCH(QStringList, tcp);
        QFETCH(int, deprecated);
        Unit unit(platformIni, chargemanager, "", corvix);
        auto manager = unit.manager();
        LogCapture log;
        QStringList actual;
        for (const RequiredModbusMeter &meter : manager->requiredModbusMeters()) {
            actual << meter.path.toString();
            QCOMPARE(meter.type, EnergyMeterTypes::ModbusRtu);
        }
        QCOMPARE(actual, rtu);
        QCOMPARE(manager->requiredTCPModbusMeters(), tcp);
        QCOMPARE(log.count("default", QtWarningMsg, "Deprecated configuration format detected!"),
            deprecated);
        QCOMPARE(log.count("config", QtDebugMsg,
                     QStringLiteral("requiredModbusMeters %1 required feedback modbus meters")
                         .arg(rtu.size())),
            chargemanager == "localcontroller=1\n" && !corvix.isNull() ? 1 : 0);
    }

    void malformedCorvixIni()
    {
        Unit unit(platformIni, chargemanagerIni, "", "[grid\nmeter=modbus/1/7\n");
        LogCapture log;
        QVERIFY(CxUtil::requiredFeedbackMeters().isEmpty());
        QVERIFY(CxUtil::requiredTCPFeedbackMeters().isEmpty());
        QCOMPARE(log.count("default", QtCriticalMsg,
                     "static QList<ModbusPath> CxUtil::_requiredFeedbackMeters(const QString&) "
                     "Could not open corvix configuration!"),
            1);
        QCOMPARE(log.count("default", QtCriticalMsg,
                     "static QList<QString> CxUtil::_requiredTCPFeedbackMeters(const QString&) "
                     "Could not open CORVIX configuration: \""
                         + CxUtil::configurationPath() + "\""),
            1);
    }

    void homeMeter_data()
    {
        QTest::addColumn<QByteArray>("chargemanager");
        QTest::addColumn<bool>("required");
        QTest::newRow("home meter") << QByteArray("localcontroller=2\n") << true;
        QTest::newRow("cxair, any case")
            << QByteArray("localcontroller=2\nCXHomeMeterType=CxAir\n") << false;
        QTest::newRow("feedback meters") << QByteArray("localcontroller=1\n") << false;
        QTest::newRow("out of range") << QByteArray("localcontroller=7\n") << false;
    }

    void homeMeter()
    {
        QFETCH(QByteArray, chargemanager);
        QFETCH(bool, required);
        Unit unit(platformIni, chargemanager);
        QCOMPARE(CxUtil::homeMeterRequired(*unit.manager()), required);
    }
};

QTEST_GUILESS_MAIN(TestConfigurationManager)
#include "tst_configurationmanager.moc"
