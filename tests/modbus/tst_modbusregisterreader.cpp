#include "fakereaderparent.h"
#include "logcapture.h"
#include "modbusreaderparent.h"
#include "modbusregisterreader.h"

#include <QTest>

#include <cerrno>
#include <cmath>

namespace {

// A driver whose reads follow a script: each entry is the result of one measurement read.
class ScriptedReader : public ModbusRegisterReader
{
public:
    using ModbusRegisterReader::ModbusRegisterReader;

    bool readStatic(modbus_t *) override
    {
        ++staticReads;
        return staticSucceeds;
    }
    bool readValues(modbus_t *) override
    {
        const bool result = script.isEmpty() ? false : script.takeFirst();
        if (!result)
            errno = ETIMEDOUT;
        return result;
    }

    QList<bool> script;
    bool staticSucceeds = true;
    int staticReads = 0;
};

} // namespace

class TestModbusRegisterReader : public QObject
{
    Q_OBJECT

private slots:
    void retries_data()
    {
        QTest::addColumn<QList<bool>>("script");
        QTest::addColumn<int>("requests");
        QTest::addColumn<int>("errors");
        QTest::addColumn<int>("successes");
        QTest::newRow("first attempt") << QList<bool> { true } << 1 << 0 << 1;
        QTest::newRow("third attempt") << QList<bool> { false, false, true } << 3 << 0 << 1;
        QTest::newRow("all three fail") << QList<bool> { false, false, false } << 3 << 1 << 0;
        QTest::newRow("no fourth attempt")
            << QList<bool> { false, false, false, true } << 3 << 1 << 0;
    }

    void retries()
    {
        QFETCH(QList<bool>, script);
        QFETCH(int, requests);
        QFETCH(int, errors);
        QFETCH(int, successes);
        FakeReaderParent parent;
        ScriptedReader reader(&parent, 3);
        reader.script = script;
        reader.read(nullptr);
        QCOMPARE(int(reader.requests()), requests);
        QCOMPARE(int(reader.errors()), errors);
        QCOMPARE(parent.successCount(), successes);
        QCOMPARE(parent.errorReasons().size(), errors);
        if (errors)
            QCOMPARE(
                parent.errorReasons().first(), QString::fromLatin1(modbus_strerror(ETIMEDOUT)));
    }

    void errorRate()
    {
        FakeReaderParent parent;
        ScriptedReader reader(&parent, 3);
        QVERIFY(std::isnan(reader.getErrorRate()));
        for (int poll = 0; poll < 10; ++poll)
            reader.read(nullptr);
        QCOMPARE(reader.getErrorRate(), 100.0 / 3.0);
        reader.script = { true, true };
        reader.read(nullptr);
        reader.read(nullptr);
        QCOMPARE(reader.getErrorRate(), 1000.0 / 32.0);
    }

    void staticReadRetriedUntilItSucceeds()
    {
        FakeReaderParent parent;
        ScriptedReader reader(&parent, 3);
        reader.staticSucceeds = false;
        reader.script = { true, true, true };
        reader.read(nullptr);
        reader.read(nullptr);
        QCOMPARE(reader.staticReads, 2);
        QVERIFY(!reader.staticReadDone());
        reader.staticSucceeds = true;
        reader.read(nullptr);
        reader.read(nullptr);
        QCOMPARE(reader.staticReads, 3);
        QVERIFY(reader.staticReadDone());
        QCOMPARE(parent.successCount(), 3);
    }

    void rescaleNearOverflow_data()
    {
        QTest::addColumn<quint32>("requests");
        QTest::addColumn<quint32>("errors");
        QTest::addColumn<quint32>("expectedRequests");
        QTest::addColumn<quint32>("expectedErrors");
        QTest::newRow("far below")
            << quint32(1000) << quint32(333) << quint32(1000) << quint32(333);
        QTest::newRow("just below") << quint32(0xFFFFFFEE) << quint32(0x55555555)
                                    << quint32(0xFFFFFFEE) << quint32(0x55555555);
        QTest::newRow("at the limit")
            << quint32(0xFFFFFFEF) << quint32(0x55555555) << quint32(65535) << quint32(0x5555);
        QTest::newRow("above") << quint32(0xFFFFFFFF) << quint32(0xFFFFFFFF) << quint32(65535)
                               << quint32(0xFFFF);
    }

    void rescaleNearOverflow()
    {
        QFETCH(quint32, requests);
        QFETCH(quint32, errors);
        QFETCH(quint32, expectedRequests);
        QFETCH(quint32, expectedErrors);
        ModbusRegisterReader::rescaleNearOverflow(requests, errors);
        QCOMPARE(requests, expectedRequests);
        QCOMPARE(errors, expectedErrors);
    }

    void tcpOnlyOperations()
    {
        FakeReaderParent parent;
        ScriptedReader reader(&parent, 3);
        LogCapture log;
        reader.setTCPContext(reinterpret_cast<modbus_t *>(&parent));
        reader.startReadTimer();
        QCOMPARE(log.count("modbus.reader", QtCriticalMsg,
                     "setTCPContext parent meter has to be modbus TCP to set context"),
            1);
        QCOMPARE(log.count("modbus.reader", QtCriticalMsg,
                     "startReadTimer parent meter has to be modbus TCP, not starting read timer"),
            1);

        parent.setEnergyMeterType(EnergyMeterTypes::ModbusTcp);
        log.clear();
        reader.setTCPContext(nullptr);
        QCOMPARE(
            log.count("modbus.reader", QtCriticalMsg, "setTCPContext context is not valid"), 1);
    }
};

QTEST_GUILESS_MAIN(TestModbusRegisterReader)
#include "tst_modbusregisterreader.moc"
