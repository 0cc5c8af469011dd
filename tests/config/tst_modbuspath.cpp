#include "logcapture.h"
#include "modbuspath.h"

#include <QTest>

class TestModbusPath : public QObject
{
    Q_OBJECT

private slots:
    void valid_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("channel");
        QTest::addColumn<int>("address");
        QTest::addColumn<QString>("printed");
        QTest::newRow("external, lowest") << "modbus/1/1" << int(Channel::External) << 1
                                          << "modbus/1/1";
        QTest::newRow("internal, highest") << "modbus/2/255" << int(Channel::Internal) << 255
                                           << "modbus/2/255";
        QTest::newRow("leading zeros, plus sign")
            << "modbus/01/+007" << int(Channel::External) << 7 << "modbus/1/7";
        QTest::newRow("prefix test only")
            << "modbusX/2/5" << int(Channel::Internal) << 5 << "modbus/2/5";
    }

    void valid()
    {
        QFETCH(QString, text);
        QFETCH(int, channel);
        QFETCH(int, address);
        QFETCH(QString, printed);
        LogCapture log;
        QVERIFY(ModbusPath::validPathString(text));
        const ModbusPath path = ModbusPath::fromPathString(text);
        QCOMPARE(int(path.channel), channel);
        QCOMPARE(int(path.address), address);
        QCOMPARE(path.toString(), printed);
        QCOMPARE(log.lines().size(), 0);
    }

    void rejected_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("message");
        QTest::newRow("channel 3") << "modbus/3/5" << "\"3\"  is not a valid channel";
        QTest::newRow("channel 0") << "modbus/0/5" << "\"0\"  is not a valid channel";
        QTest::newRow("address 0") << "modbus/1/0" << "\"0\"  is not a valid address";
        QTest::newRow("address 256") << "modbus/1/256" << "\"256\"  is not a valid address";
        QTest::newRow("channel text") << "modbus/x/5" << "\"x\"  is not a number";
        QTest::newRow("address text") << "modbus/1/x" << "\"x\"  is not a number";
        QTest::newRow("address past 32 bits")
            << "modbus/1/4294967301" << "\"4294967301\"  is not a number";
        QTest::newRow("too few parts") << "modbus/1" << "Invalid format: \"modbus/1\"";
        QTest::newRow("too many parts") << "modbus/1/2/3" << "Invalid format: \"modbus/1/2/3\"";
        QTest::newRow("capital M") << "Modbus/1/5" << "Invalid format: \"Modbus/1/5\"";
        QTest::newRow("tcp form") << "modbus/192.168.0.10"
                                  << "Invalid format: \"modbus/192.168.0.10\"";
    }

    void rejected()
    {
        QFETCH(QString, text);
        QFETCH(QString, message);
        LogCapture log;
        QVERIFY(!ModbusPath::validPathString(text));
        QCOMPARE(log.count("default", QtCriticalMsg,
                     "static bool ModbusPath::validPathString(const QString&) "),
            1);
        QCOMPARE(log.count(message), 1);

        log.clear();
        const ModbusPath path = ModbusPath::fromPathString(text);
        QCOMPARE(path, (ModbusPath { Channel::Invalid, 0 }));
        QVERIFY(path.toString().isEmpty());
        QCOMPARE(log.count("default", QtCriticalMsg,
                     "static ModbusPath ModbusPath::fromPathString(const QString&) Invalid path "
                     "used! Expect trouble"),
            1);
    }
};

QTEST_GUILESS_MAIN(TestModbusPath)
#include "tst_modbuspath.moc"
