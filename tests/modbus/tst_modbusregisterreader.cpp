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
    // Each poll makes up to three attempts and counts one error when all fail; the static read
    // is tried at every poll until it succeeds.
    void readCycle_data()
    {
        QTest::addColumn<QList<bool>>("script");
        QTest::addColumn<int>("polls");
        QTest::addColumn<int>("requests");
        QTest::addColumn<int>("errors");
        QTest::addColumn<int>("successes");
        QTest::newRow("first attempt") << QList<bool> { true } << 1 << 1 << 0 << 1;
        QTest::newRow("third attempt") << QList<bool> { false, false, true } << 1 << 3 << 0 << 1;
        QTest::newRow("no fourth attempt")
            << QList<bool> { false, false, false, true } << 1 << 3 << 1 << 0;
        QTest::newRow("then the next poll")
            << QList<bool> { false, false, false, true } << 2 << 4 << 1 << 1;
        QTest::newRow("ten failed polls, two good")
            << QList<bool>(30, false) + QList<bool> { true, true } << 12 << 32 << 10 << 2;
    }

    void readCycle()
    {
        QFETCH(QList<bool>, script);
        QFETCH(int, polls);
        QFETCH(int, requests);
        QFETCH(int, errors);
        QFETCH(int, successes);
        FakeReaderParent parent;
        ScriptedReader reader(&parent, 3);
        QVERIFY(std::isnan(reader.getErrorRate()));
        reader.staticSucceeds = false;
        reader.script = script;
        for (int poll = 0; poll < polls; ++poll) {
            reader.staticSucceeds = poll == 1;
            reader.read(nullptr);
        }
        QCOMPARE(int(reader.requests()), requests);
        QCOMPARE(int(reader.errors()), errors);
        QCOMPARE(reader.getErrorRate(), 100.0 * errors / requests);
        QCOMPARE(parent.successCount(), successes);
        QCOMPARE(parent.errorReasons(),
            QStringList(errors, QString::fromLatin1(modbus_strerror(ETIMEDOUT))));
        QCOMPARE(reader.staticReads, qMin(polls, 2));
        QCOMPARE(reader.staticReadDone(), polls >= 2);
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
