#include "setting.h"
#include "settingvalue.h"

#include <QRegularExpression>
#include <QTest>

class TestSetting : public QObject
{
    Q_OBJECT

private slots:
    void storageClassCounts()
    {
        QMap<StorageClass, int> counts;
        for (const Setting setting : Setting::all())
            ++counts[setting.storageClass()];
        QCOMPARE(Setting::all().size(), 189);
        QCOMPARE(counts.value(StorageClasses::Chargemanager), 122);
        QCOMPARE(counts.value(StorageClasses::Platform), 34);
        QCOMPARE(counts.value(StorageClasses::Environment), 3);
        QCOMPARE(counts.value(StorageClasses::Virtual), 30);
    }

    void invalidSetting_data()
    {
        QTest::addColumn<quint32>("index");
        QTest::newRow("default constructed") << Setting().index();
        QTest::newRow("190") << quint32(190);
        QTest::newRow("189, just past the table") << quint32(189);
        QTest::newRow("huge") << quint32(0xFFFFFFFF);
    }

    void invalidSetting()
    {
        QFETCH(quint32, index);
        const Setting setting = Setting::fromIndex(index);
        QVERIFY(!setting.isValid());
        QVERIFY(setting.key().isEmpty());
        QCOMPARE(setting.storageClass(), StorageClasses::Virtual);
        QVERIFY(!setting.defaultValue().isValid());
    }

    void keysAreUniqueAndIndexed()
    {
        QSet<QString> keys;
        for (const Setting setting : Setting::all()) {
            QVERIFY2(!keys.contains(setting.key()), qPrintable(setting.key()));
            keys.insert(setting.key());
            QCOMPARE(Setting::fromKey(setting.key()), setting);
        }
    }

    void fromKey_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<quint32>("index");
        QTest::newRow("plain key") << "outlet/size" << quint32(22);
        QTest::newRow("ocpp added in front") << "ocpp/HeartbeatInterval" << quint32(11);
        QTest::newRow("ocpp is never removed") << "AuthCacheLifeTime" << quint32(190);
        QTest::newRow("ocpp added once more") << "ocpp/ocpp/AuthCacheLifeTime" << quint32(3);
        QTest::newRow("case sensitive") << "Outlet/Size" << quint32(190);
        QTest::newRow("empty") << "" << quint32(190);
        QTest::newRow("last row") << "modbus/debug" << quint32(188);
    }

    void fromKey()
    {
        QFETCH(QString, key);
        QFETCH(quint32, index);
        QCOMPARE(Setting::fromKey(key).index(), index);
    }

    void publicName_data()
    {
        QTest::addColumn<quint32>("index");
        QTest::addColumn<QString>("name");
        QTest::newRow("outlet/size") << quint32(Settings::OutletSize) << "NumberOfConnectors";
        QTest::newRow("ocpp removed")
            << quint32(Settings::AuthCacheLifeTime) << "AuthCacheLifeTime";
        QTest::newRow("platform added")
            << quint32(Settings::ModbusBaudrate) << "platform/modbus/baudrate";
        QTest::newRow("unchanged") << quint32(Settings::Chargeboxidentity) << "chargeboxidentity";
        QTest::newRow("environment") << quint32(Settings::Serialno) << "serialno";
        QTest::newRow("virtual with ocpp")
            << quint32(Settings::ChargeProfileMaxStackLevel) << "ChargeProfileMaxStackLevel";
    }

    void publicName()
    {
        QFETCH(quint32, index);
        QFETCH(QString, name);
        QCOMPARE(Setting::fromIndex(index).publicName(), name);
        QCOMPARE(Setting::fromPublicName(name).index(), index);
    }

    void publicNameIsNotAKey()
    {
        QCOMPARE(Setting::fromPublicName("outlet/size"), Setting());
        QCOMPARE(Setting::fromKey("NumberOfConnectors"), Setting());
        QCOMPARE(Setting::fromPublicName("modbus/baudrate"), Setting());
    }

    void defaults_data()
    {
        QTest::addColumn<quint32>("index");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("outlet/size") << quint32(Settings::OutletSize) << QVariant(2);
        QTest::newRow("energymeter") << quint32(Settings::Outlet2Energymeter) << QVariant(-1);
        QTest::newRow("baudrate") << quint32(Settings::ModbusBaudrate) << QVariant(9600);
        QTest::newRow("meter type") << quint32(Settings::CXHomeMeterType) << QVariant("modbus");
        QTest::newRow("empty text") << quint32(Settings::Gateway) << QVariant(QString());
        QTest::newRow("max keys text")
            << quint32(Settings::GetConfigurationMaxKeys) << QVariant("number of parameters");
        QTest::newRow("heartbeat") << quint32(Settings::HeartbeatInterval) << QVariant(240);
        QTest::newRow("environment") << quint32(Settings::HwRev) << QVariant("N/A");
        QTest::newRow("rfid format") << quint32(Settings::SystemRfidFormat) << QVariant("true");
    }

    void defaults()
    {
        QFETCH(quint32, index);
        QFETCH(QVariant, value);
        const SettingValue actual = Setting::fromIndex(index).defaultValue();
        QVERIFY(actual.isValid());
        QCOMPARE(actual.variant(), value);
    }

    void chargeboxIdentityIsAFreshUuid()
    {
        const QString first = Setting(Settings::Chargeboxidentity).defaultValue().toString();
        const QString second = Setting(Settings::Chargeboxidentity).defaultValue().toString();
        const QRegularExpression uuid(
            QStringLiteral("^[0-9a-f]{8}-([0-9a-f]{4}-){3}[0-9a-f]{12}$"));
        QVERIFY2(uuid.match(first).hasMatch(), qPrintable(first));
        QVERIFY(uuid.match(second).hasMatch());
        QVERIFY(first != second);
    }

    void toldDefaultsAreFilled()
    {
        QVERIFY(Setting(Settings::Endpoint).defaultValue().toString().startsWith("wss://"));
        QVERIFY(!Setting(Settings::NtpServerUri).defaultValue().toString().isEmpty());
        QCOMPARE(Setting(Settings::CustomizationCtrlSupported)
                     .defaultValue()
                     .toString()
                     .split(", ")
                     .size(),
            3);
    }
};

QTEST_GUILESS_MAIN(TestSetting)
#include "tst_setting.moc"
