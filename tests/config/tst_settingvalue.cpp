#include "logcapture.h"
#include "settingvalue.h"

#include <QTest>

// Each row: the stored value, the conversion's result, and the critical line it must log
// (empty: no line at all).
class TestSettingValue : public QObject
{
    Q_OBJECT

private:
    static void addColumns()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<int>("expected");
        QTest::addColumn<QString>("message");
    }

    static void checkMessage(const LogCapture &log, const QString &message)
    {
        if (message.isEmpty()) {
            QCOMPARE(log.lines().size(), 0);
            return;
        }
        QCOMPARE(log.lines().size(), 1);
        QCOMPARE(log.lines().first().type, QtCriticalMsg);
        QCOMPARE(log.lines().first().category, QStringLiteral("default"));
        QCOMPARE(log.lines().first().text, message);
    }

private slots:
    void toEnergyMeterType_data()
    {
        addColumns();
        const QString prefix
            = "EnergyMeterType SettingValue::toEnergyMeterType() const Unknown energy meter type: ";
        QTest::newRow("-1") << QVariant(-1) << -1 << "";
        QTest::newRow("2 as text") << QVariant("2") << 2 << "";
        QTest::newRow("4") << QVariant(4) << 4 << "";
        QTest::newRow("0 passes") << QVariant(0) << 0 << "";
        QTest::newRow("5 out of range") << QVariant(5) << -1 << prefix + "5";
        QTest::newRow("-2 out of range") << QVariant("-2") << -1 << prefix + "-2";
        QTest::newRow("not a number") << QVariant("abc") << 0 << prefix + "\"abc\"";
        QTest::newRow("invalid") << QVariant() << 0 << prefix + "\"\"";
    }

    void toEnergyMeterType()
    {
        QFETCH(QVariant, stored);
        QFETCH(int, expected);
        QFETCH(QString, message);
        LogCapture log;
        QCOMPARE(SettingValue(stored).toEnergyMeterType(), expected);
        checkMessage(log, message);
    }

    void toConnectorType_data()
    {
        addColumns();
        const QString prefix = "EvseManagerTypes::ConnectorType SettingValue::toConnectorType() "
                               "const Invalid connector type: ";
        QTest::newRow("schuko") << QVariant(0) << 0 << "";
        QTest::newRow("mennekes outlet") << QVariant("3") << 3 << "";
        QTest::newRow("4") << QVariant(4) << 0 << prefix + "4";
        QTest::newRow("-1") << QVariant(-1) << 0 << prefix + "-1";
    }

    void toConnectorType()
    {
        QFETCH(QVariant, stored);
        QFETCH(int, expected);
        QFETCH(QString, message);
        LogCapture log;
        QCOMPARE(int(SettingValue(stored).toConnectorType()), expected);
        checkMessage(log, message);
    }

    void toLockEngineType_data()
    {
        addColumns();
        const QString prefix
            = "PlugLockEngine SettingValue::toLockEngineType() const Unknown lock type: ";
        QTest::newRow("1") << QVariant(1) << 1 << "";
        QTest::newRow("3") << QVariant("3") << 3 << "";
        QTest::newRow("-1") << QVariant(-1) << 0 << prefix + "-1";
        QTest::newRow("4") << QVariant(4) << 0 << prefix + "4";
        QTest::newRow("text") << QVariant("motor") << 0 << prefix + "\"motor\"";
    }

    void toLockEngineType()
    {
        QFETCH(QVariant, stored);
        QFETCH(int, expected);
        QFETCH(QString, message);
        LogCapture log;
        QCOMPARE(SettingValue(stored).toLockEngineType(), expected);
        checkMessage(log, message);
    }

    void toCorvixType_data()
    {
        addColumns();
        const QString prefix
            = "CorvixType SettingValue::toCorvixType() const Invalid parameter for CorvixType:  ";
        QTest::newRow("0") << QVariant(0) << 0 << "";
        QTest::newRow("1") << QVariant("1") << 1 << "";
        QTest::newRow("2") << QVariant(2) << 2 << "";
        QTest::newRow("3") << QVariant(3) << 0 << prefix + "3";
        QTest::newRow("-5") << QVariant(-5) << 0 << prefix + "-5";
    }

    void toCorvixType()
    {
        QFETCH(QVariant, stored);
        QFETCH(int, expected);
        QFETCH(QString, message);
        LogCapture log;
        QCOMPARE(int(SettingValue(stored).toCorvixType()), expected);
        checkMessage(log, message);
    }

    void isCxAir_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<bool>("expected");
        QTest::newRow("lower") << QVariant("cxair") << true;
        QTest::newRow("mixed case") << QVariant("CxAir") << true;
        QTest::newRow("modbus") << QVariant("modbus") << false;
        QTest::newRow("trailing blank") << QVariant("cxair ") << false;
        QTest::newRow("invalid") << QVariant() << false;
    }

    void isCxAir()
    {
        QFETCH(QVariant, stored);
        QFETCH(bool, expected);
        QCOMPARE(SettingValue(stored).isCxAir(), expected);
    }

    void plainConversions()
    {
        QCOMPARE(SettingValue(QVariant("42")).toInt(), 42);
        QCOMPARE(SettingValue(QVariant("x")).toInt(), 0);
        QCOMPARE(SettingValue(QVariant(1)).toBool(), true);
        QCOMPARE(SettingValue(QVariant("0")).toBool(), false);
        QCOMPARE(SettingValue(QVariant("true")).toBool(), true);
        QCOMPARE(SettingValue(QVariant(17)).toString(), QStringLiteral("17"));
        QVERIFY(SettingValue().toString().isEmpty());
    }

    void toHostAddress()
    {
        QCOMPARE(
            SettingValue(QVariant("192.168.0.10")).toHostAddress(), QHostAddress("192.168.0.10"));
        QCOMPARE(SettingValue(QVariant("::1")).toHostAddress(),
            QHostAddress(QHostAddress::LocalHostIPv6));
        QVERIFY(SettingValue(QVariant("not-an-address")).toHostAddress().isNull());
        QVERIFY(SettingValue().toHostAddress().isNull());
    }
};

QTEST_GUILESS_MAIN(TestSettingValue)
#include "tst_settingvalue.moc"
