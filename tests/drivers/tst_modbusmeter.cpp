#include "clock.h"
#include "logcapture.h"
#include "metersimulator.h"
#include "modbusmeter.h"
#include "ptypair.h"
#include "registerslave.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

namespace {

constexpr int address = 7;

// An EM111 (single phase) with 230.0 V, 5.000 A, 1150.0 W and 42.0 kWh.
void loadEm111(RegisterSlave &slave, quint16 idCode = 101)
{
    slave.setRegisters(770, { 1, 0 });
    slave.setRegister(11, idCode);
    slave.setRegisters(0x5000, { 0x4D45, 0x3131, 0x0031, 0, 0, 0, 0 }); // "EM111"
    slave.setRegisters(0, { 2300, 0, 5000, 0, 11500, 0 });
    slave.setRegisters(20, { 420, 0 });
}

modbus_t *connectedContext(const QString &device)
{
    modbus_t *context = modbus_new_rtu(device.toLocal8Bit().constData(), 9600, 'N', 8, 1);
    if (!context)
        return nullptr;
    modbus_set_response_timeout(context, 0, 500000);
    if (modbus_connect(context) == -1) {
        modbus_free(context);
        return nullptr;
    }
    return context;
}

} // namespace

// The meter core polled from the test's thread (standing in for the channel's reader thread)
// against a libmodbus slave on a pty; time is moved by the test.
class TestModbusMeter : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PtyPair> _pty;
    std::unique_ptr<RegisterSlave> _slave;
    modbus_t *_context = nullptr;

    // One poll as the queue makes it, a poll interval after the previous one.
    void poll(ModbusMeter &meter, modbus_t *context = nullptr)
    {
        Clock::advance(1001);
        meter.useContext(context ? context : _context);
        QCoreApplication::processEvents();
    }

private slots:
    void init()
    {
        _pty = std::make_unique<PtyPair>();
        QVERIFY(_pty->isReady());
        _slave = std::make_unique<RegisterSlave>(_pty->second(), address);
        QVERIFY(_slave->isReady());
        _context = connectedContext(_pty->first());
        QVERIFY(_context);
    }

    void cleanup()
    {
        modbus_close(_context);
        modbus_free(_context);
        _slave.reset();
        _pty.reset();
    }

    void detection_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("detected");
        const QString cg = QStringLiteral("_detectMeterType Carlo Gavazzi ");
        QTest::newRow("EM511") << 1794 << cg + "EM511 Modbus Meter detected. Code:  1794" << true;
        QTest::newRow("EM580") << 1843 << cg + "EM580 Modbus Meter detected. Code:  1843" << true;
        QTest::newRow("EM540") << 1762 << cg + "EM540 Modbus Meter detected. Code:  1762" << true;
        for (int code : { 331, 332, 335, 336, 341, 345, 346 })
            QTest::addRow("EM300 %d", code)
                << code
                << cg + "EM300 Series Modbus Meter detected. Code:  " + QString::number(code)
                << true;
        for (int code : { 210, 211 })
            QTest::addRow("EM210 %d", code)
                << code
                << cg + "EM210 series Modbus meter detected. Code:  " + QString::number(code)
                << true;
        QTest::newRow("GM3D") << 64 << "_detectMeterType Garo GM3D Modbus Meter detected" << true;
        for (int code : { 100, 101, 102, 103, 104, 110, 114, 120, 121 })
            QTest::addRow("EM111 %d", code)
                << code
                << cg + "EM/ET110 Series Modbus Meter detected. Code:  " + QString::number(code)
                << true;
        for (int code : { 78, 79 })
            QTest::addRow("EM26 %d", code)
                << code << cg + "EM26 series Modbus meter detected. Code:  " + QString::number(code)
                << true;
        for (int code : { 57, 58, 70 })
            QTest::addRow("EM21 %d", code)
                << code << cg + "EM21 series Modbus meter detected. Code:  " + QString::number(code)
                << true;
        QTest::newRow("EM21 57 regular") << 57 << "_detectMeterType EM21 regular version" << true;
        QTest::newRow("EM21 58 regular") << 58 << "_detectMeterType EM21 regular version" << true;
        QTest::newRow("EM21 70 retrofit") << 70 << "_detectMeterType EM21 Retrofit version" << true;
        // Only the TCP meter reads a PAC3220.
        QTest::newRow("PAC3220") << 42 << "ID Code does not match any known modbus meter:  42"
                                 << false;
        QTest::newRow("inside the EM300 range")
            << 333 << "ID Code does not match any known modbus meter:  333" << false;
        QTest::newRow("zero") << 0 << "ID Code does not match any known modbus meter:  0" << false;
        QTest::newRow("largest") << 65535 << "ID Code does not match any known modbus meter:  65535"
                                 << false;
    }

    void detection()
    {
        QFETCH(int, code);
        QFETCH(QString, line);
        QFETCH(bool, detected);
        _slave->setRegister(11, quint16(code));
        ModbusMeter meter(address, 2);
        LogCapture log;
        meter.useContext(_context);
        meter.useContext(_context);
        QCOMPARE(meter.isDetected(), detected);
        QCOMPARE(log.count("modbus.meter", QtDebugMsg, line), detected ? 1 : 2);
        QCOMPARE(log.count("modbus.meter", QtDebugMsg, "_detectMeterType " + QString::number(code)),
            detected ? 1 : 2);
        QCOMPARE(log.count("modbus.meter", QtInfoMsg, "useContext Meter detected:  7"),
            detected ? 1 : 0);
        // Absence is reported once, however often detection fails.
        QCOMPARE(log.count("modbus.meter", QtCriticalMsg, "useContext No meter detected: 7"),
            detected ? 0 : 1);
    }

    void em300RaisesTheMinimumPause()
    {
        _slave->setRegister(11, 341);
        ModbusMeter meter(address, 2);
        meter.setPauseMs(15);
        meter.useContext(_context);
        QVERIFY(meter.isDetected());
        QCOMPARE(meter.pauseMs(), 0);
        QCOMPARE(ModbusUnit::minimumPauseMs(), 40);
        ModbusUnit::raiseMinimumPauseMs(10);
        QCOMPARE(ModbusUnit::minimumPauseMs(), 40);
    }

    // The ISKRA meter has no identification code: its type comes from the configuration. It is
    // read with function 0x04 from the simulator's WM3M6.
    void iskraWithoutIdentification()
    {
        MeterSimulator simulator(R"(
[7]
model=WM3M6
serial=WM123456
voltage1=230.12
current1=12.345
power=-2500.5
powerfactor1=-0.95
frequency=49.98
energy=4321.0987
fault=frozen
)");
        const QTemporaryDir directory;
        const QString device = directory.filePath("ttyModbusOcu");
        QVERIFY(simulator.start(device));
        const std::unique_ptr<modbus_t, void (*)(modbus_t *)> context(
            connectedContext(device), [](modbus_t *context) {
                modbus_close(context);
                modbus_free(context);
            });
        QVERIFY(context);
        ModbusMeter meter(address, 4);
        LogCapture log;

        poll(meter, context.get());
        QVERIFY(meter.isDetected());
        QVERIFY(log.contains("modbus.meter", QtDebugMsg, "_detectMeterType Creating ISKRA meter!"));
        QVERIFY(simulator.requests(address).isEmpty());

        // Every request refused: the static read and each of the three attempts stop at their
        // first request.
        QVERIFY(simulator.command("fault 7 exception"));
        poll(meter, context.get());
        QCOMPARE(
            log.count("modbus.meter", QtWarningMsg, "readStatic Failure to read REG_SW_REFERENCE"),
            1);
        QCOMPARE(
            log.count("modbus.meter", QtWarningMsg, "readRegisters Failure to read voltage"), 3);
        QCOMPARE(meter.getErrorRate(), 100.0 / 3);

        QVERIFY(simulator.command("fault 7 frozen"));
        poll(meter, context.get());
        const QStringList failed { "0x04 13 1", "0x04 107 6", "0x04 107 6", "0x04 107 6" };
        const QStringList staticRead { "0x04 13 1", "0x04 14 1", "0x04 1 8", "0x04 9 4" };
        const QStringList values { "0x04 107 6", "0x04 126 6", "0x04 166 6", "0x04 105 2",
            "0x04 140 2", "0x04 434 2" };
        QCOMPARE(simulator.requests(address), failed + staticRead + values);
        QCOMPARE(meter.info(), QStringLiteral("WM3M6:WM123456"));
        QCOMPARE(meter.voltage(1), double(230.12f));
        QCOMPARE(meter.voltage(2), double(231.0f)); // the simulator's default
        QCOMPARE(meter.current(1), double(12.345f));
        QCOMPARE(meter.power(), -2500.5);
        // Only the magnitude: the sign bits are not read.
        QCOMPARE(meter.powerFactor(1), double(0.95f));
        QCOMPARE(meter.frequency(), double(49.98f));
        QCOMPARE(meter.totalEnergy(), 4321.0987);
        QCOMPARE(meter.totalEnergyExported(), 0.0);
    }

    // Identification and static registers answer, but the EM540's 80-register block is not
    // there: each of the three attempts hands libmodbus's text to the tally, and the read cycle
    // adds it once more after the last. No exception gets out of the poll.
    void failingEm540BulkRead()
    {
        _slave->setRegister(11, 1762);
        _slave->setRegisters(770, { 1, 0 });
        _slave->setRegisters(0x5000, { 0x4D45, 0x3435, 0x0030, 0, 0, 0, 0, 0 }); // "EM540"
        _slave->setRegister(0x1104, 0);
        _slave->setRegister(50, 0);
        ModbusMeter meter(address, 2);
        poll(meter);
        poll(meter);
        QCOMPARE(meter.info(), QStringLiteral("EM540:EM540"));
        QCOMPARE(meter.errorTally(), (QMap<QString, int> { { "Illegal data address", 4 } }));
        QCOMPARE(meter.getErrorRate(), 100.0 / 3);
        QVERIFY(std::isnan(meter.voltage(1)));
    }

    void silentMeterAndTheErrorSummary()
    {
        _slave->setFault(RegisterSlave::Fault::Silent);
        ModbusMeter meter(address, 2);
        LogCapture log;
        poll(meter);
        poll(meter);
        const QString reason
            = QStringLiteral("Could not read meter ID on address: 7 Reason: Connection timed out");
        QCOMPARE(log.count("modbus.meter", QtWarningMsg, "_detectMeterType " + reason), 1);
        QCOMPARE(log.count("No meter detected: 7"), 1);
        QCOMPARE(meter.errorTally().value(reason), 2);
        QVERIFY(std::isnan(meter.getErrorRate()));

        Clock::advance(900000);
        QTRY_VERIFY(log.contains("modbus.meter", QtCriticalMsg,
            "_outputErrorLog Errors for  () during the last 900 seconds:"));
        QCOMPARE(log.count("modbus.meter", QtCriticalMsg,
                     "_outputErrorLog \"" + reason + "\" occured 2 times"),
            1);
        QVERIFY(meter.errorTally().isEmpty());

        // An empty tally writes no summary.
        Clock::advance(900000);
        QTest::qWait(50);
        QCOMPARE(log.count("Errors for"), 1);
    }

    void refusedAddressSendsNothing()
    {
        ModbusMeter meter(248, 2);
        LogCapture log;
        meter.useContext(_context);
        QCOMPARE(_slave->requestCount(), 0);
        QCOMPARE(meter.errorTally().value(
                     "Could not read meter ID on address: 248 Reason: Invalid argument"),
            1);
    }

    // Detection, then the static read and a reading at most once per poll interval; a failed
    // poll counts one error against four requests and leaves NaN.
    void readingsErrorRateAndSession()
    {
        loadEm111(*_slave);
        ModbusMeter meter(address, 2);
        QSignalSpy updated(&meter, &ModbusMeter::valuesUpdated);
        QVERIFY(std::isnan(meter.sessionEnergy()));
        poll(meter);
        poll(meter);
        QCOMPARE(updated.size(), 1);
        QCOMPARE(meter.status(), OK);
        QCOMPARE(meter.voltage(1), 230.0);
        QCOMPARE(meter.current(1), 5.0);
        QCOMPARE(meter.power(), 1150.0);
        QCOMPARE(meter.totalEnergy(), 42.0);
        QCOMPARE(meter.info(), QStringLiteral("EM111_AV7:EM111"));
        QCOMPARE(meter.getErrorRate(), 0.0);
        QVERIFY(std::isnan(meter.sessionEnergy())); // no session started yet

        const int requests = _slave->requestCount();
        meter.useContext(_context);
        QCOMPARE(_slave->requestCount(), requests);
        meter.startSession();
        QCOMPARE(meter.sessionEnergy(), 0.0);
        _slave->setRegisters(20, { 455, 0 });
        poll(meter);
        QCOMPARE(_slave->requestCount(), requests + 2);
        QVERIFY(qAbs(meter.sessionEnergy() - 3.5) < 1e-9);
        QCOMPARE(meter.sessionEnergyExported(), 0.0);

        _slave->setFault(RegisterSlave::Fault::Exception);
        poll(meter);
        QCOMPARE(meter.getErrorRate(), 20.0);
        QVERIFY(std::isnan(meter.voltage(1)));
        QCOMPARE(meter.errorTally().value("Slave device or server failure"), 1);
    }

    void connectionLostAndMeterError()
    {
        loadEm111(*_slave);
        ModbusMeter meter(address, 2);
        QSignalSpy lost(&meter, &ModbusMeter::connectionLost);
        QSignalSpy error(&meter, &ModbusMeter::meterError);
        poll(meter);
        poll(meter);
        _slave->setFault(RegisterSlave::Fault::Exception);

        poll(meter);
        QCOMPARE(lost.size(), 0); // within 15 s of the last good read
        Clock::advance(14000);
        poll(meter);
        QCOMPARE(lost.size(), 1);
        QCOMPARE(error.size(), 0);

        // Silent for over an hour, but the meter has not been up for a day yet.
        Clock::advance(3600000);
        poll(meter);
        QCOMPARE(error.size(), 0);
        Clock::advance(86400000);
        poll(meter);
        QCOMPARE(error.size(), 1);
        QCOMPARE(
            error.first().first().toString(), QStringLiteral("Slave device or server failure"));
        poll(meter);
        QCOMPARE(error.size(), 1); // at most once a day
        Clock::advance(86400000);
        poll(meter);
        QCOMPARE(error.size(), 2);
        QCOMPARE(lost.size(), 5);
    }

    void staleAndFaulty()
    {
        loadEm111(*_slave);
        ModbusMeter meter(address, 2);
        poll(meter);
        poll(meter);
        QVERIFY(!meter.isStale());
        QVERIFY(!meter.isFaulty());
        // Readings keep coming, but the voltage never changes.
        for (int i = 0; i < 120; ++i)
            poll(meter);
        QVERIFY(meter.isStale());
        QVERIFY(!meter.isFaulty());
        QCOMPARE(meter.status(), OK);

        _slave->setRegister(0, 2301);
        poll(meter);
        QVERIFY(!meter.isStale());

        meter.resetStaleValues();
        QVERIFY(std::isnan(meter.voltage(1)));
        QCOMPARE(meter.errorTally().value("Stale value reset"), 1);

        _slave->setFault(RegisterSlave::Fault::Exception);
        Clock::advance(120000);
        poll(meter);
        QVERIFY(meter.isFaulty());
    }

    void codeToString_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        QTest::newRow("PAC3220") << 42 << "PAC3220";
        QTest::newRow("EM33") << 64 << "EM33_DIN_AV3";
        QTest::newRow("ET112") << 121 << "ET112_AV1";
        QTest::newRow("EM341") << 346 << "EM341";
        QTest::newRow("EM580") << 1843 << "EM580";
        QTest::newRow("unknown") << 333 << "UNKNOWN";
    }

    void codeToString()
    {
        QFETCH(int, code);
        QFETCH(QString, name);
        QCOMPARE(ModbusMeter::codeToString(code), name);
    }
};

QTEST_GUILESS_MAIN(TestModbusMeter)
#include "tst_modbusmeter.moc"
