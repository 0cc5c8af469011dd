#include "logcapture.h"
#include "setting.h"
#include "settingvalue.h"

#include <QRegularExpression>
#include <QTest>

#include <functional>

// The settings table's lookups, and the typed conversions of a stored value with the critical
// line each refusal logs.
class TestSetting : public QObject
{
    Q_OBJECT

private slots:
    void lookups_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<quint32>("index");
        QTest::addColumn<QString>("publicName");
        QTest::newRow("plain key") << "outlet/size" << quint32(22) << "NumberOfConnectors";
        QTest::newRow("ocpp added in front")
            << "ocpp/HeartbeatInterval" << quint32(11) << "HeartbeatInterval";
        QTest::newRow("ocpp added once more") << "ocpp/ocpp/AuthCacheLifeTime" << quint32(3)
                                              << "AuthCacheLifeTime";
        QTest::newRow("platform class") << "modbus/baudrate" << quint32(Settings::ModbusBaudrate)
                                        << "platform/modbus/baudrate";
        QTest::newRow("last row") << "modbus/debug" << quint32(188) << "platform/modbus/debug";
        QTest::newRow("ocpp never removed") << "AuthCacheLifeTime" << quint32(190) << "";
        QTest::newRow("case sensitive") << "Outlet/Size" << quint32(190) << "";
        QTest::newRow("a public name is no key") << "NumberOfConnectors" << quint32(190) << "";
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

    void everyKeyFindsItsRow()
    {
        QCOMPARE(Setting::all().size(), 189);
        for (const Setting setting : Setting::all())
            QCOMPARE(Setting::fromKey(setting.key()), setting);
        QVERIFY(!Setting::fromIndex(0xFFFFFFFF).isValid());
    }

    void chargeboxIdentityIsAFreshUuid()
    {
        const QString first = Setting(Settings::Chargeboxidentity).defaultValue().toString();
        const QString second = Setting(Settings::Chargeboxidentity).defaultValue().toString();
        QVERIFY2(QRegularExpression("^[0-9a-f]{8}-([0-9a-f]{4}-){3}[0-9a-f]{12}$")
                     .match(first)
                     .hasMatch(),
            qPrintable(first));
        QVERIFY(first != second);
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
        QTest::newRow("meter -2") << "meter" << QVariant("-2") << -1 << meter + "-2";
        QTest::newRow("meter text") << "meter" << QVariant("abc") << 0 << meter + "\"abc\"";
        QTest::newRow("meter invalid") << "meter" << QVariant() << 0 << meter + "\"\"";
        const QString connector = "EvseManagerTypes::ConnectorType "
                                  "SettingValue::toConnectorType() const Invalid connector type: ";
        QTest::newRow("connector 0") << "connector" << QVariant(0) << 0 << "";
        QTest::newRow("connector 3") << "connector" << QVariant("3") << 3 << "";
        QTest::newRow("connector 4") << "connector" << QVariant(4) << 0 << connector + "4";
        QTest::newRow("connector -1") << "connector" << QVariant(-1) << 0 << connector + "-1";
        const QString lock
            = "PlugLockEngine SettingValue::toLockEngineType() const Unknown lock type: ";
        QTest::newRow("lock 1") << "lock" << QVariant(1) << 1 << "";
        QTest::newRow("lock 3") << "lock" << QVariant("3") << 3 << "";
        QTest::newRow("lock 4") << "lock" << QVariant(4) << 0 << lock + "4";
        QTest::newRow("lock -1") << "lock" << QVariant(-1) << 0 << lock + "-1";
        QTest::newRow("lock text") << "lock" << QVariant("motor") << 0 << lock + "\"motor\"";
        const QString corvix = "CorvixType SettingValue::toCorvixType() const Invalid parameter "
                               "for CorvixType:  ";
        QTest::newRow("corvix 0") << "corvix" << QVariant(0) << 0 << "";
        QTest::newRow("corvix 2") << "corvix" << QVariant("2") << 2 << "";
        QTest::newRow("corvix 3") << "corvix" << QVariant(3) << 0 << corvix + "3";
        QTest::newRow("corvix -5") << "corvix" << QVariant(-5) << 0 << corvix + "-5";
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
            { "connector", [](const SettingValue &v) { return int(v.toConnectorType()); } },
            { "lock", [](const SettingValue &v) { return v.toLockEngineType(); } },
            { "corvix", [](const SettingValue &v) { return int(v.toCorvixType()); } },
            { "cxair", [](const SettingValue &v) { return int(v.isCxAir()); } },
        };
        LogCapture log;
        QCOMPARE(convert.value(conversion)(SettingValue(stored)), expected);
        QCOMPARE(log.lines().size(), message.isEmpty() ? 0 : 1);
        if (!message.isEmpty())
            QCOMPARE(log.count("default", QtCriticalMsg, message), 1);
    }
};

QTEST_GUILESS_MAIN(TestSetting)
#include "tst_setting.moc"
