#include "clock.h"
#include "logcapture.h"
#include "metersimulator.h"
#include "modbusdeviceidentification.h"
#include "modbustcpmeter.h"

#include <QCoreApplication>
#include <QTest>

#include <cmath>
#include <memory>

using Objects = QMap<quint8, QString>;

namespace {

// A response frame as a device sends it: MBAP header with the request's transaction id, then
// function 0x2B, MEI 0x0E, read code 1, conformity 1, More Follows, Next Object Id, the count
// and the objects. The length byte counts what follows it.
QByteArray frame(quint8 moreFollows, quint8 next, const QList<QPair<quint8, QByteArray>> &objects)
{
    QByteArray pdu = QByteArray::fromHex("2B0E0101");
    pdu.append(char(moreFollows)).append(char(next)).append(char(objects.size()));
    for (const auto &[id, value] : objects)
        pdu.append(char(id)).append(char(value.size())).append(value);
    return QByteArray::fromHex("ABCD0000") + char(0) + char(pdu.size() + 1) + char(0xFF) + pdu;
}

const QList<QPair<quint8, QByteArray>> siemens { { 0, "SIEMENS" }, { 1, "PAC3220" },
    { 2, "V3.2.1" } };

// One simulated device per loopback address; .25 has nothing listening.
const QString pacAddress = "127.0.0.21";
const QString em24Address = "127.0.0.22";
const QString nobodyAddress = "127.0.0.25";

// Moves the clock and lets the timers of every thread see it.
void advance(qint64 ms)
{
    Clock::advance(ms);
    QCoreApplication::processEvents();
}

// Detection asks with the default unit id 255; the drivers select unit 0 for their reads.
int registerReads(MeterSimulator &simulator, const QString &address, int unit, int start, int count)
{
    return simulator.count(QStringLiteral("tcp %1 slave %2 function 0x03 address %3 count %4")
                               .arg(address)
                               .arg(unit)
                               .arg(start)
                               .arg(count));
}

} // namespace

// Network meters: the device identification answer parsed from raw frames, and TCP meters in this
// process against the simulator's network devices on loopback port 502, with the 10 s retries on
// the injected clock.
class TestModbusTcpMeter : public QObject
{
    Q_OBJECT

private:
    MeterSimulator _simulator;

    static void skipWithoutPort502()
    {
        if (!MeterSimulator::canServeModbusTcp())
            QSKIP("binding port 502 needs root (or run the suite inside unshare -rn)");
    }

private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("response");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QStringList>("warnings");
        QTest::addColumn<Objects>("objects");

        const QString length = "got an unexpected response length";
        const Objects all { { 0, "SIEMENS" }, { 1, "PAC3220" }, { 2, "V3.2.1" } };
        QTest::newRow("complete") << frame(0, 0, siemens) << true << QStringList() << all;
        QTest::newRow("6 bytes") << frame(0, 0, siemens).left(6) << false << QStringList { length }
                                 << Objects();
        QByteArray sevenBytes = frame(0, 0, siemens).left(7);
        sevenBytes[5] = 7;
        QTest::newRow("7 bytes, length 7")
            << sevenBytes << false << QStringList { length } << Objects();
        QByteArray swapped = frame(0, 0, siemens);
        std::swap(swapped[0], swapped[1]);
        QTest::newRow("transaction id swapped")
            << swapped << false
            << QStringList { "response frame transaction id did not match request transaction id" }
            << Objects();
        QTest::newRow("More Follows 0xFF")
            << frame(0xFF, 0, siemens) << false
            << QStringList { "can not yet handle \"More Follows\"" } << Objects();
        QTest::newRow("More Follows 0x01 is taken")
            << frame(0x01, 0, siemens) << true << QStringList() << all;
        QTest::newRow("exception response") << QByteArray::fromHex("ABCD00000003FFAB01") << false
                                            << QStringList { length } << Objects();
        QTest::newRow("zero objects") << frame(0, 0, {}) << true << QStringList() << Objects();
        QTest::newRow("objects 0, 2, 1")
            << frame(0, 0, { siemens[0], siemens[2], siemens[1] }) << true
            << QStringList { "object id 2 in list does not match next object id: 1",
                   "object id 1 in list does not match next object id: 2" }
            << all;
        QTest::newRow("next object id 3, three objects")
            << frame(0, 3, { { 3, "a" }, { 4, "b" }, { 5, "c" } }) + QByteArray::fromHex("060178")
            << true << QStringList() << Objects { { 3, "a" }, { 4, "b" }, { 5, "c" } };
        QTest::newRow("VendorName twice keeps the second")
            << frame(0, 0, { { 0, "first" }, { 0, "second" } }) << true
            << QStringList { "object id 0 in list does not match next object id: 1" }
            << Objects { { 0, "second" } };
        // Ids and lengths are the device's word; bytes that did not arrive read as zero, never
        // past the end: a cut frame leaves a truncated first object, then empty ones with id 0.
        QTest::newRow("frame cut inside the first object")
            << frame(0, 0, siemens).left(20) << true
            << QStringList { "object id 0 in list does not match next object id: 1",
                   "object id 0 in list does not match next object id: 2" }
            << Objects { { 0, QString() } };
    }

    void parse()
    {
        QFETCH(QByteArray, response);
        QFETCH(bool, accepted);
        QFETCH(QStringList, warnings);
        QFETCH(Objects, objects);

        LogCapture log;
        ModbusDeviceIdentification identification(QString {});
        QCOMPARE(identification.parseResponse(response), accepted);
        QCOMPARE(identification.objects(), objects);
        QStringList seen;
        for (const LogCapture::Line &line : log.lines()) {
            if (line.category == "modbus.device.info" && line.type == QtWarningMsg)
                seen.append(line.text.section(' ', 1));
        }
        QCOMPARE(seen, warnings);
        QCOMPARE(identification.state(), ModbusDeviceIdentification::Pending);
    }

    void initTestCase()
    {
        if (!MeterSimulator::canServeModbusTcp())
            return;
        QVERIFY(_simulator.start(
            QString(), { "--tcp", pacAddress + ":PAC3220", "--tcp", em24Address + ":EM24:1650" }));
        for (const QString &address : { pacAddress, em24Address })
            QVERIFY(_simulator.command("fault " + address + " frozen"));
        QVERIFY(_simulator.command("set " + pacAddress + " energy 1000.5"));
        QVERIFY(_simulator.command("set " + pacAddress + " energy2 2.5"));
    }

    // A network meter's life: the first pass only asks for the identification; the second
    // detects by it (PAC3220) or by the model code (EM24); an address where nothing listens is
    // tried again every 10 s; a lost connection is made again at most every 10 s.
    void lifecycle()
    {
        skipWithoutPort502();
        LogCapture log;
        ModbusTCPMeter pac(pacAddress, 502);
        ModbusTCPMeter em24(em24Address, 502);
        ModbusTCPMeter nobody(nobodyAddress, 502);
        ModbusTCPMeter noContext(QString(), 502);
        QCOMPARE(log.count("could not create a Modbus TCP context"), 1);
        QTRY_COMPARE(log.count("modbus.device.info", QtDebugMsg, "response contains 3 objects"), 2);
        QCOMPARE(_simulator.count("tcp " + pacAddress + " slave"), 0);

        advance(10000);
        QTRY_COMPARE(pac.metervalues().value("status").toString(), QStringLiteral("Connected"));
        QTRY_COMPARE(em24.metervalues().value("status").toString(), QStringLiteral("Connected"));
        QCOMPARE(
            log.count("_detectMeterTypeFromDeviceId Siemens PAC3220 ModbusTCP Meter detected!"), 1);
        QCOMPARE(log.count("Carlo Gavazzi EM24 series ModbusTCP Meter detected! Code 1650"), 1);
        // Detection reads register 11 with libmodbus's default unit id; the drivers select 0.
        QCOMPARE(registerReads(_simulator, em24Address, 255, 11, 1), 1);
        QVERIFY(registerReads(_simulator, pacAddress, 0, 805, 4) > 0);
        // The PAC3220's energy is the sum of its two counters.
        QTRY_COMPARE(pac.totalEnergy(), 1003.0);
        QCOMPARE(log.count("modbus.meter.tcp", QtCriticalMsg,
                     "_connect failed to connect to meter at \"127.0.0.25\""),
            2);
        QCOMPARE(noContext.metervalues().value("status").toString(), QStringLiteral("NotFound"));

        QVERIFY(_simulator.command("down " + em24Address));
        QTRY_VERIFY(std::isnan(em24.voltage(1)));
        // Silent for over 15 s: the next failed read reports the connection lost.
        advance(16000);
        QTRY_COMPARE(log.count("modbus.meter.tcp", QtWarningMsg,
                         "_reconnect failed to reconnect to meter at \"127.0.0.22\""),
            1);
        QVERIFY(_simulator.command("up " + em24Address));
        advance(5000);
        QTest::qWait(500);
        QCOMPARE(log.count("reconnect"), 1);
        advance(5001);
        QTRY_COMPARE(log.count("modbus.meter.tcp", QtInfoMsg,
                         "_reconnect reconnected to meter at \"127.0.0.22\""),
            1);
        QTRY_COMPARE(em24.voltage(1), 230.0);
        QVERIFY(em24.getErrorRate() > 0.0);
    }
};

QTEST_GUILESS_MAIN(TestModbusTcpMeter)
#include "tst_modbustcpmeter.moc"
