#include "configurationmanager.h"
#include "cxutil.h"
#include "firmwareenvironmentutil.h"
#include "logcapture.h"
#include "modbuspath.h"
#include "setting.h"
#include "settingvalue.h"
#include "testfiles.h"

#include <QTest>

#include <functional>
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

// The configuration files and what is read from them: the run mode, settings by storage class,
// the feedback meters of the local grid, the firmware environment, the settings table and typed
// setting values, and meter paths.
class TestConfiguration : public QObject
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
        QCOMPARE(
            manager->intValue(Settings::AuthCacheLifeTime), chargemanager.isNull() ? 2592000 : 77);
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
        QTest::newRow("P stored") << env << quint32(Settings::OutletSize) << QVariant("1");
        QTest::newRow("P default") << env << quint32(Settings::ModbusBaudrate) << QVariant(9600);
        QTest::newRow("E stored") << env << quint32(Settings::Serialno) << QVariant("S1");
        QTest::newRow("E default") << env << quint32(Settings::HwRev) << QVariant("N/A");
        QTest::newRow("V max keys")
            << env << quint32(Settings::GetConfigurationMaxKeys) << QVariant(189);
        QTest::newRow("V firmware version, first line trimmed")
            << env << quint32(Settings::FirmwareVersion) << QVariant("4.2.0-rc1");
        QTest::newRow("V vendor from platform.ini")
            << env << quint32(Settings::ChargingStationVendor) << QVariant("PlatformVendor");
        QTest::newRow("V vendor from the environment")
            << identity << quint32(Settings::ChargingStationVendor) << QVariant("EnvVendor");
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

    // Computed settings this daemon has no value for.
    void unhandledVirtualSettings()
    {
        Unit unit(platformIni, chargemanagerIni);
        auto manager = unit.manager();
        LogCapture log;
        for (const Setting setting : { Setting(Settings::ChargeProfileMaxStackLevel), Setting() })
            QVERIFY(!manager->value(setting).isValid());
        QCOMPARE(log.count("config", QtCriticalMsg,
                     "Unhandled parameter! \"ocpp/ChargeProfileMaxStackLevel\" \"20\" 5"),
            1);
        QCOMPARE(log.count("config", QtCriticalMsg, "Unhandled parameter! \"\" \"\" 190"), 1);
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
    }

    void homeMeter()
    {
        QFETCH(QByteArray, chargemanager);
        QFETCH(bool, required);
        Unit unit(platformIni, chargemanager);
        QCOMPARE(CxUtil::homeMeterRequired(*unit.manager()), required);
    }

    void environmentMap_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("later line wins, second equals cuts")
            << QByteArray("serialno=123\nserialno=456\nmodel=X=Y\n")
            << QVariantMap { { "serialno", "456" }, { "model", "X" } };
        QTest::newRow("no equals ignored, nothing trimmed")
            << QByteArray("garbage\n key = value \nvendor=\n=x\n")
            << QVariantMap { { " key ", " value " }, { "vendor", "" }, { "", "x" } };
        // A directory exists, so no regeneration is attempted, but it cannot be read as a file.
        QTest::newRow("unreadable") << QByteArray() << QVariantMap();
        QTest::newRow("crlf, last line without newline")
            << QByteArray("a=1\r\nb=2") << QVariantMap { { "a", "1" }, { "b", "2" } };
    }

    void environmentMap()
    {
        QFETCH(QByteArray, content);
        QFETCH(QVariantMap, expected);
        TestFiles files;
        const QString file
            = content.isNull() ? files.path("") : files.write("platform.conf", content);
        ScopedEnvironment path("CM_PLATFORMCONFIG", file);
        LogCapture log;
        QVariantMap actual;
        const QMap<QString, QString> map = FirmwareEnvironmentUtil::environmentMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            actual.insert(it.key(), it.value());
        QCOMPARE(actual, expected);
        QCOMPARE(log.count("default", QtInfoMsg,
                     "static QMap<QString, QString> FirmwareEnvironmentUtil::environmentMap() \""
                         + file + "\""),
            1);
        QCOMPARE(log.count("default", QtCriticalMsg, "Failed to read platform.conf file"),
            content.isNull() ? 1 : 0);
    }

    void version_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("expected");
        QTest::newRow("first line, trimmed") << QByteArray("  v7 \t\n4.5.6\n") << "v7";
        QTest::newRow("missing") << QByteArray() << "N/A";
    }

    void version()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        TestFiles files;
        ScopedEnvironment path("CM_VERSIONFILE",
            content.isNull() ? files.path("absent") : files.write("version", content));
        QCOMPARE(FirmwareEnvironmentUtil::firmwareVersion(), expected);
    }

    void lookups_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<quint32>("index");
        QTest::addColumn<QString>("publicName");
        QTest::newRow("plain key") << "outlet/size" << quint32(22) << "NumberOfConnectors";
        QTest::newRow("ocpp added once more")
            << "ocpp/ocpp/AuthCacheLifeTime" << quint32(3) << "AuthCacheLifeTime";
        QTest::newRow("platform class")
            << "modbus/baudrate" << quint32(Settings::ModbusBaudrate) << "platform/modbus/baudrate";
        QTest::newRow("ocpp never removed") << "AuthCacheLifeTime" << quint32(190) << "";
    }

    void lookups()
    {
        QFETCH(QString, key);
        QFETCH(quint32, index);
        QFETCH(QString, publicName);
        const Setting setting = Setting::fromKey(key);
        QCOMPARE(setting.index(), index);
        QCOMPARE(setting.isValid(), !publicName.isEmpty());
        QCOMPARE(setting.publicName(), publicName);
        if (setting.isValid())
            QCOMPARE(Setting::fromPublicName(publicName), setting);
        else
            QVERIFY(setting.key().isEmpty() && !setting.defaultValue().isValid());
    }

    void conversions_data()
    {
        QTest::addColumn<QString>("conversion");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<int>("expected");
        QTest::addColumn<QString>("message"); // the one critical line, or none when empty
        const QString meter = "EnergyMeterType SettingValue::toEnergyMeterType() const Unknown "
                              "energy meter type: ";
        QTest::newRow("meter -1") << "meter" << QVariant(-1) << -1 << "";
        QTest::newRow("meter 4 as text") << "meter" << QVariant("4") << 4 << "";
        QTest::newRow("meter 5") << "meter" << QVariant(5) << -1 << meter + "5";
        QTest::newRow("meter text") << "meter" << QVariant("abc") << 0 << meter + "\"abc\"";
        const QString corvix = "CorvixType SettingValue::toCorvixType() const Invalid parameter "
                               "for CorvixType:  ";
        QTest::newRow("corvix 2") << "corvix" << QVariant("2") << 2 << "";
        QTest::newRow("corvix 3") << "corvix" << QVariant(3) << 0 << corvix + "3";
        QTest::newRow("cxair any case") << "cxair" << QVariant("CxAir") << 1 << "";
        QTest::newRow("cxair with a blank") << "cxair" << QVariant("cxair ") << 0 << "";
    }

    void conversions()
    {
        QFETCH(QString, conversion);
        QFETCH(QVariant, stored);
        QFETCH(int, expected);
        QFETCH(QString, message);
        const QMap<QString, std::function<int(const SettingValue &)>> convert {
            { "meter", [](const SettingValue &v) { return v.toEnergyMeterType(); } },
            { "corvix", [](const SettingValue &v) { return int(v.toCorvixType()); } },
            { "cxair", [](const SettingValue &v) { return int(v.isCxAir()); } },
        };
        LogCapture log;
        QCOMPARE(convert.value(conversion)(SettingValue(stored)), expected);
        QCOMPARE(log.lines().size(), message.isEmpty() ? 0 : 1);
        if (!message.isEmpty())
            QCOMPARE(log.count("default", QtCriticalMsg, message), 1);
    }

    // A meter path read and printed back, or refused with the reason and an invalid path.
    void meterPaths_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("printed"); // or the reason it is refused
        QTest::newRow("external, lowest") << "modbus/1/1"
                                          << "modbus/1/1";
        QTest::newRow("internal, highest") << "modbus/2/255"
                                           << "modbus/2/255";
        QTest::newRow("leading zeros, plus sign") << "modbus/01/+007"
                                                  << "modbus/1/7";
        QTest::newRow("prefix test only") << "modbusX/2/5"
                                          << "modbus/2/5";
        QTest::newRow("channel 3") << "modbus/3/5"
                                   << "\"3\"  is not a valid channel";
        QTest::newRow("address 256") << "modbus/1/256"
                                     << "\"256\"  is not a valid address";
        QTest::newRow("channel text") << "modbus/x/5"
                                      << "\"x\"  is not a number";
        QTest::newRow("address past 32 bits") << "modbus/1/4294967301"
                                              << "\"4294967301\"  is not a number";
        QTest::newRow("too many parts") << "modbus/1/2/3"
                                        << "Invalid format: \"modbus/1/2/3\"";
    }

    void meterPaths()
    {
        QFETCH(QString, text);
        QFETCH(QString, printed);
        const bool valid = printed.startsWith("modbus/");
        LogCapture log;
        QCOMPARE(ModbusPath::validPathString(text), valid);
        const ModbusPath path = ModbusPath::fromPathString(text);
        QCOMPARE(path.toString(), valid ? printed : QString());
        QCOMPARE(path.channel == Channel::Invalid, !valid);
        QCOMPARE(log.lines().size(), valid ? 0 : 3);
        if (!valid) {
            QCOMPARE(log.count("default", QtCriticalMsg,
                         "static bool ModbusPath::validPathString(const QString&) "),
                2);
            QCOMPARE(log.count(printed), 2);
            QCOMPARE(path.address, quint8(0));
            QCOMPARE(log.count("Invalid path used! Expect trouble"), 1);
        }
    }
};

QTEST_GUILESS_MAIN(TestConfiguration)
#include "tst_configuration.moc"
