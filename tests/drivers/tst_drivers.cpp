#include "clock.h"
#include "logcapture.h"
#include "metersimulator.h"
#include "modbusem111.h"
#include "modbusem210.h"
#include "modbusem24.h"
#include "modbusem26.h"
#include "modbusem340.h"
#include "modbusem511.h"
#include "modbusem540.h"
#include "modbusem580.h"
#include "modbusgm3d.h"
#include "modbusgm3t.h"
#include "modbusmeter.h"
#include "ptypair.h"
#include "registerdecoding.h"
#include "registerslave.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <functional>
#include <memory>

using Words = QList<quint16>;
using RegisterMap = QMap<int, Words>;
Q_DECLARE_METATYPE(RegisterSlave::Fault)

namespace {

constexpr int slaveAddress = 7;

constexpr int writtenRegister = 4356;
constexpr quint16 untouched = 0xABCD;

template <typename Driver>
std::unique_ptr<ModbusRegisterReader> make(ModbusReaderParent *meter, quint8 address)
{
    return std::make_unique<Driver>(meter, address);
}

const QMap<QString, std::unique_ptr<ModbusRegisterReader> (*)(ModbusReaderParent *, quint8)>
    makeDriver { { "EM111", make<ModbusEM111> }, { "EM210", make<ModbusEM210> },
        { "EM24", make<ModbusEM24> }, { "EM26", make<ModbusEM26> }, { "EM340", make<ModbusEM340> },
        { "EM511", make<ModbusEM511> }, { "EM540", make<ModbusEM540> },
        { "EM580", make<ModbusEM580> }, { "GM3D", make<ModbusGM3D> },
        { "GM3T", make<ModbusGM3T> } };

// Text two bytes to a register: the first in the low byte, as the older meters store it, or in
// the high byte, as the EM500 series does.
Words textWords(const QByteArray &text, bool highByteFirst = false)
{
    Words words;
    for (qsizetype i = 0; i < text.size(); i += 2) {
        const quint8 first = quint8(text.at(i));
        const quint8 second = i + 1 < text.size() ? quint8(text.at(i + 1)) : 0;
        words.append(highByteFirst ? first << 8 | second : second << 8 | first);
    }
    return words;
}

// A meter with plausible identity registers for each model. The EM26's serial has zero bytes
// inside; the EM340 lacks the production year, which not every EM300 has.
RegisterMap staticRegisters(const QString &model)
{
    if (model == QLatin1String("EM111"))
        return { { 770, { 3, 1 } }, { 11, { 101 } }, { 0x5000, textWords("BV12300450017Z") } };
    if (model == QLatin1String("EM210"))
        return { { 770, { 2 } }, { 771, { 5 } }, { 11, { 210 } }, { 0x5007, { 2021 } },
            { 50, { 0 } }, { 0x5000, textWords("ABC1234") } };
    if (model == QLatin1String("EM24"))
        return { { 770, { 0x1203 } }, { 772, { 0x2110 } }, { 11, { 1653 } },
            { 0x5000, textWords("DE0123456789AB") } };
    if (model == QLatin1String("EM26"))
        return { { 770, { 4, 0 } }, { 11, { 79 } }, { 54, { 1 } },
            { 0x1300, textWords("KY9876") + Words { 0 } + textWords("543210") } };
    if (model == QLatin1String("EM511"))
        return { { 770, { 0x1203 } }, { 11, { 1794 } },
            { 0x5000, textWords("EM511SN0000042", true) } };
    if (model == QLatin1String("EM540"))
        return { { 770, { 3 } }, { 771, { 1 } }, { 11, { 1762 } },
            { 0x5000, textWords("BY2110000042001X") }, { 50, { 0xFFFF } } };
    if (model == QLatin1String("EM580"))
        return { { 770, { 0x1203, 0x2110 } }, { 11, { 1843 } },
            { 0x5000, textWords("EM580SN0000099", true) + Words { 2023 } } };
    if (model == QLatin1String("GM3D"))
        return { { 770, { 2, 1 } }, { 11, { 64 } }, { 16, { 2020 } }, { 0x1103, { 5 } },
            { 0x1104, { 0xCD15, 0x075B } } };
    if (model == QLatin1String("GM3T"))
        return { { 770, { 1 } }, { 771, { 2 } }, { 11, { 70 } }, { 50, { 1 } },
            { 0x5000, textWords("GM3T0000000007") } };
    return { { 770, { 1, 2 } }, { 11, { 341 } }, { 50, { 0 } },
        { 0x5000, textWords("BX2019000123YZ") } };
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

double decodeNumber(const QString &format, const Words &words)
{
    using namespace RegisterDecoding;
    const quint16 *w = words.constData();
    const QMap<QString, std::function<double()>> decoders {
        { "int32 lsw", [w] { return int32LswFirst(w); } },
        { "int32 msw", [w] { return int32MswFirst(w); } },
        { "int16", [w] { return int16(w[0]); } },
        { "float", [w] { return float32MswFirst(w); } },
        { "double", [w] { return float64MswFirst(w); } },
        { "packed A", [w] { return packedFormatA(w); } },
        { "packed B", [w] { return packedFormatB(w); } },
        { "power factor", [w] { return packedPowerFactor(w); } },
    };
    return decoders.value(format)();
}

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

// The RS-485 meters: register decoding, each model driver's static and measurement reads, and
// the meter core that identifies the model and keeps the readings. Requests go to a libmodbus
// slave on a pty, from the test's thread standing in for the channel's reader thread; time is
// moved by the test.
class TestDrivers : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PtyPair> _pty;
    std::unique_ptr<RegisterSlave> _slave;
    modbus_t *_context = nullptr;

    void loadRegisters(const RegisterMap &registers)
    {
        for (auto it = registers.cbegin(); it != registers.cend(); ++it)
            _slave->setRegisters(it.key(), it.value());
    }

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
        _slave = std::make_unique<RegisterSlave>(_pty->second(), slaveAddress);
        QVERIFY(_slave->isReady());
        _slave->setRegister(writtenRegister, untouched);
        _context = connectedContext(_pty->first());
        QVERIFY(_context);
        QCOMPARE(modbus_set_slave(_context, slaveAddress), 0);
    }

    void cleanup()
    {
        modbus_close(_context);
        modbus_free(_context);
        _slave.reset();
        _pty.reset();
    }

    void numbers_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<Words>("words");
        QTest::addColumn<double>("expected");
        const auto row
            = [](const char *name, const char *format, const Words &words, double expected) {
                  QTest::newRow(name) << QString(format) << words << expected;
              };
        row("lsw: high word counts 65536", "int32 lsw", { 0xE240, 0x0001 }, 123456);
        row("lsw: negative", "int32 lsw", { 0xFB2E, 0xFFFF }, -1234);
        row("msw: high word first", "int32 msw", { 0x0001, 0xE240 }, 123456);
        row("int16: negative power factor", "int16", { 0xFC25 }, -987);
        row("float: low word matters", "float", { 0x3F80, 0x0001 }, double(1.0000001f));
        row("double: last word matters", "double", { 0x3FF0, 0, 0, 1 }, 1.0000000000000002);
        row("A: mantissa above 2^23 positive", "packed A", { 0x00FF, 0xFFFF }, 16777215.0);
        row("A: smallest exponent", "packed A", { 0x8000, 0x0001 }, 1e-128);
        row("A: largest exponent", "packed A", { 0x7F00, 0x0001 }, 1e127);
        row("B: negative mantissa", "packed B", { 0xFFFF, 0x9E53 }, -2500.5);
        row("B: most negative mantissa", "packed B", { 0x0080, 0x0000 }, -8388608.0);
        row("pf: sign bits ignored", "power factor", { 0xFFFF, 0x2648 }, 0.98);
    }

    void numbers()
    {
        QFETCH(QString, format);
        QFETCH(Words, words);
        QFETCH(double, expected);
        QCOMPARE(decodeNumber(format, words), expected);
    }

    void texts_data()
    {
        QTest::addColumn<bool>("highByteFirst");
        QTest::addColumn<Words>("words");
        QTest::addColumn<int>("maxBytes");
        QTest::addColumn<QString>("expected");
        QTest::newRow("low byte first") << false << Words { 0x4241, 0x4443 } << 4 << "ABCD";
        QTest::newRow("zero bytes dropped")
            << false << Words { 0x3231, 0x0000, 0x3300, 0x0034 } << 8 << "1234";
        QTest::newRow("negative limit") << false << Words { 0x4241 } << -1 << "";
        QTest::newRow("high byte first") << true << Words { 0x4142, 0x4344 } << 0 << "ABCD";
        QTest::newRow("high first, padding dropped")
            << true << Words { 0x574D, 0x334D, 0x3600, 0x0031 } << 0 << "WM3M61";
    }

    void texts()
    {
        QFETCH(bool, highByteFirst);
        QFETCH(Words, words);
        QFETCH(int, maxBytes);
        QFETCH(QString, expected);
        const int count = int(words.size());
        QCOMPARE(highByteFirst
                ? RegisterDecoding::textHighByteFirst(words.constData(), count)
                : RegisterDecoding::serialFromRegisters(words.constData(), count, maxBytes),
            expected);
    }

    // What each model publishes ("model:serial", id code, extra value) and logs.
    void staticRead_data()
    {
        QTest::addColumn<QString>("model");
        QTest::addColumn<RegisterMap>("changes");
        QTest::addColumn<QString>("published");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<bool>("writes");
        const auto row = [](const char *name, const char *model, const RegisterMap &changes,
                             const char *published, const char *logged, bool writes = false) {
            QTest::newRow(name) << model << changes << published << logged << writes;
        };
        row("EM210V flag set gives 2", "EM210", { { 11, { 211 } }, { 50, { 0x0100 } } },
            "EM210V:ABC1234 211 2", "Rev  5  ID  211  Year  2021", true);
        row("EM24 code past the names", "EM24", { { 11, { 1654 } } },
            "UNKNOWN:DE0123456789AB 1654 0", "id: 1654");
        row("EM26 flag set gives 2", "EM26", {}, "EM26_96_AV6:KY9876543210 79 2", "Year  1");
        row("EM340 with production year", "EM340", { { 0x5010, { 2019 } } },
            "EM340:BX2019000123YZ 341 1", "Year: 2019", true);
        row("EM330 without production year", "EM340", { { 11, { 331 } }, { 50, { 3 } } },
            "EM330_AV6:BX2019000123YZ 331 2", "Unable to get production year.", true);
        // The EM500 series: serials with the first character in the high byte.
        row("EM580 year as extra value", "EM580", {}, "EM580:EM580SN0000099 1843 2023",
            "Communication firmware:  v2.1.16");
        // The extra value tells the phase sequence: 1 forward, 2 reversed, 0 unknown.
        row("EM540 reversed phase sequence", "EM540", {}, "EM540:BY2110000042001X 1762 2",
            "Static:  43981  Phase sequence:  -1");
        row("EM540 unknown phase sequence", "EM540", { { 50, { 5 } } },
            "EM540:BY2110000042001X 1762 0", "readStatic Unknown phase sequence value 5");
        row("GM3D numeric serial", "GM3D", {}, "EM33_DIN_AV3:123456789 64 0",
            "Year  2020  Serial:  123456789  2  5");
        row("GM3T EM21 retrofit", "GM3T", {}, "EM21_72R:GM3T0000000007 70 2", "ID  70");
    }

    void staticRead()
    {
        QFETCH(QString, model);
        QFETCH(RegisterMap, changes);
        QFETCH(QString, published);
        QFETCH(QString, logged);
        QFETCH(bool, writes);
        loadRegisters(staticRegisters(model));
        loadRegisters(changes);
        const quint16 before = _slave->registerValue(writtenRegister);
        ModbusMeter meter(slaveAddress, 2);
        QSignalSpy detected(&meter, &ModbusMeter::meterDetected);
        const auto driver = makeDriver.value(model)(&meter, slaveAddress);
        const LogCapture log;

        QVERIFY(driver->readStatic(_context));

        QVERIFY(meter.errorTally().isEmpty());
        QCOMPARE(detected.size(), 1);
        QCOMPARE(QStringLiteral("%1 %2 %3")
                     .arg(meter.info(), QString::number(meter.idCode()),
                         QString::number(meter.staticExtra())),
            published);
        QVERIFY2(log.count(logged) == 1, qPrintable(logged));
        QCOMPARE(_slave->registerValue(writtenRegister), writes ? quint16(0) : before);
    }

    void failedRequest_data()
    {
        QTest::addColumn<QString>("model");
        QTest::addColumn<int>("address");
        QTest::addColumn<bool>("measurement");
        QTest::addColumn<RegisterSlave::Fault>("fault");
        QTest::addColumn<int>("faultyRequest");
        QTest::addColumn<QStringList>("reasons");
        const auto reason = [](int error) { return QStringList { modbus_strerror(error) }; };
        const auto row = [&](const char *name, const char *model, bool measurement, int request,
                             const QStringList &reasons,
                             RegisterSlave::Fault fault = RegisterSlave::Fault::Exception) {
            QTest::newRow(name) << model << slaveAddress << measurement << fault << request
                                << reasons;
        };
        const QStringList failure = reason(EMBXSFAIL);
        // A failed static request runs the error routine with libmodbus's text.
        row("EM111 serial", "EM111", false, 3, failure);
        row("EM111 silent", "EM111", false, 1, reason(ETIMEDOUT), RegisterSlave::Fault::Silent);
        row("EM24 measurement version", "EM24", false, 2, failure);
        row("EM210 flag after the write", "EM210", false, 6, failure);
        row("GM3T serial after the code", "GM3T", false, 5, failure);
        // A refused write of register 4356 fails the static read quietly.
        row("EM210 write", "EM210", false, 5, {});
        row("EM340 write", "EM340", false, 4, {});
        // Retries and the error routine of a measurement belong to the read cycle of the base.
        row("EM111 energy", "EM111", true, 2, {});
        row("EM26 energy", "EM26", true, 4, {});
        row("EM340 second block", "EM340", true, 2, {});
        // The EM540 hands every failure of its own reads to the error routine, exceptions
        // included, and lets none of them out.
        row("EM540 phase sequence", "EM540", false, 6, failure);
        row("EM540 bulk block", "EM540", true, 1, failure);
        row("EM540 bulk block silent", "EM540", true, 1, reason(ETIMEDOUT),
            RegisterSlave::Fault::Silent);
        // 248 is above the RTU slave range, so libmodbus refuses it. The context is set to the
        // test slave: a driver that went on after the refusal would reach it.
        for (const QString &model : makeDriver.keys()) {
            for (bool measurement : { false, true }) {
                QTest::addRow("%s address 248%s", qPrintable(model), measurement ? ", values" : "")
                    << model << 248 << measurement << RegisterSlave::Fault::Exception << 0
                    << (measurement && model != QLatin1String("EM540") ? QStringList()
                                                                       : reason(EINVAL));
            }
        }
    }

    // The slave fails one request and every one after it: the driver stops there and publishes
    // nothing.
    void failedRequest()
    {
        QFETCH(QString, model);
        QFETCH(int, address);
        QFETCH(bool, measurement);
        QFETCH(RegisterSlave::Fault, fault);
        QFETCH(int, faultyRequest);
        QFETCH(QStringList, reasons);
        _slave->setRegisters(0, Words(80, 1));
        loadRegisters(staticRegisters(model));
        _slave->setFault(fault, faultyRequest);
        ModbusMeter meter(slaveAddress, 2);
        QSignalSpy detected(&meter, &ModbusMeter::meterDetected);
        QSignalSpy readings(&meter, &ModbusMeter::newReading);
        const auto driver = makeDriver.value(model)(&meter, quint8(address));

        QVERIFY(!(measurement ? driver->readValues(_context) : driver->readStatic(_context)));

        QCOMPARE(meter.errorTally().keys(), reasons);
        QVERIFY(detected.isEmpty() && readings.isEmpty());
        QCOMPARE(_slave->requestCount(), faultyRequest);
    }

    // Each poll makes up to three attempts and counts one error when all fail; the static read
    // is tried at every poll until it succeeds.
    void readCycle_data()
    {
        QTest::addColumn<QList<bool>>("script");
        QTest::addColumn<int>("polls");
        QTest::addColumn<int>("requests");
        QTest::addColumn<int>("errors");
        QTest::addColumn<int>("successes");
        QTest::newRow("third attempt") << QList<bool> { false, false, true } << 1 << 3 << 0 << 1;
        QTest::newRow("no fourth attempt")
            << QList<bool> { false, false, false, true } << 1 << 3 << 1 << 0;
        QTest::newRow("every poll failing: one error in three")
            << QList<bool>(30, false) << 10 << 30 << 10 << 0;
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
        // Polled a while after the meter last answered: a success restarts that time.
        ModbusMeter meter(3, 2);
        ScriptedReader reader(&meter, 3);
        QVERIFY(std::isnan(reader.getErrorRate()));
        Clock::advance(100000);
        reader.staticSucceeds = false;
        reader.script = script;
        for (int poll = 0; poll < polls; ++poll) {
            reader.staticSucceeds = poll == 1;
            reader.read(nullptr);
        }
        QCOMPARE(int(reader.requests()), requests);
        QCOMPARE(int(reader.errors()), errors);
        QCOMPARE(reader.getErrorRate(), 100.0 * errors / requests);
        Clock::advance(50000);
        QCOMPARE(meter.isFaulty(), successes == 0);
        QCOMPARE(meter.errorTally().value(modbus_strerror(ETIMEDOUT)), errors);
        QCOMPARE(reader.staticReads, qMin(polls, 2));
        QCOMPARE(reader.staticReadDone(), polls >= 2);
    }

    // Near the top of the request counter both counts are scaled down by 2^16.
    void rescaleNearOverflow()
    {
        const quint32 cases[][4] = { { 0xFFFFFFEE, 0x55555555, 0xFFFFFFEE, 0x55555555 },
            { 0xFFFFFFEF, 0x55555555, 65535, 0x5555 }, { 0xFFFFFFFF, 0xFFFFFFFF, 65535, 0xFFFF } };
        for (const auto &[requests, errors, scaledRequests, scaledErrors] : cases) {
            quint32 r = requests;
            quint32 e = errors;
            ModbusRegisterReader::rescaleNearOverflow(r, e);
            QCOMPARE(r, scaledRequests);
            QCOMPARE(e, scaledErrors);
        }
    }

    void detection_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("line");
        const auto rows = [](const QList<int> &codes, const QString &line) {
            for (int code : codes)
                QTest::addRow("%d", code) << code << line.arg(code);
        };
        const QString cg = "_detectMeterType Carlo Gavazzi %1";
        rows({ 1794 }, cg.arg("EM511 Modbus Meter detected. Code:  %1"));
        rows({ 1843 }, cg.arg("EM580 Modbus Meter detected. Code:  %1"));
        rows({ 1762 }, cg.arg("EM540 Modbus Meter detected. Code:  %1"));
        rows({ 331, 332, 335, 336, 341, 345, 346 },
            cg.arg("EM300 Series Modbus Meter detected. Code:  %1"));
        rows({ 210, 211 }, cg.arg("EM210 series Modbus meter detected. Code:  %1"));
        rows({ 64 }, "_detectMeterType Garo GM3D Modbus Meter detected");
        rows({ 100, 101, 102, 103, 104, 110, 114, 120, 121 },
            cg.arg("EM/ET110 Series Modbus Meter detected. Code:  %1"));
        rows({ 78, 79 }, cg.arg("EM26 series Modbus meter detected. Code:  %1"));
        rows({ 57, 58 }, "_detectMeterType EM21 regular version");
        rows({ 70 }, "_detectMeterType EM21 Retrofit version");
        // Only the TCP meter reads a PAC3220; 333 lies inside the EM300 codes.
        rows({ 42, 333, 0, 65535 }, "ID Code does not match any known modbus meter:  %1");
    }

    void detection()
    {
        QFETCH(int, code);
        QFETCH(QString, line);
        const bool detected = !line.contains("does not match");
        _slave->setRegister(11, quint16(code));
        ModbusMeter meter(slaveAddress, 2);
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
        // An EM300 on the line gives every meter at least 40 ms of quiet before a request.
        if (line.contains("EM300"))
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
        ModbusMeter meter(slaveAddress, 4);
        LogCapture log;

        poll(meter, context.get());
        QVERIFY(meter.isDetected());
        QVERIFY(log.contains("modbus.meter", QtDebugMsg, "_detectMeterType Creating ISKRA meter!"));
        QVERIFY(simulator.requests(slaveAddress).isEmpty());

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
        QCOMPARE(simulator.requests(slaveAddress), failed + staticRead + values);
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
        // The static read is done once.
        poll(meter, context.get());
        QCOMPARE(simulator.requests(slaveAddress).mid(14), values);
    }

    void silentMeterAndTheErrorSummary()
    {
        _slave->setFault(RegisterSlave::Fault::Silent);
        ModbusMeter meter(slaveAddress, 2);
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

    // A meter's life on the channel: detection, then the static read and a reading at most once
    // per poll interval; a session; frozen voltages turning it stale; then failed polls: one
    // error against the requests, NaN, the connection reported lost after 15 s, a meter error
    // after an hour once the meter has been up a day and then once a day, and faulty at 120 s.
    void pollLifecycle()
    {
        // An EM111 with 230.0 V, 5.000 A, 1150.0 W and 42.0 kWh.
        loadRegisters(staticRegisters("EM111"));
        _slave->setRegisters(0, { 2300, 0, 5000, 0, 11500, 0 });
        _slave->setRegisters(20, { 420, 0 });
        ModbusMeter meter(slaveAddress, 2);
        QSignalSpy updated(&meter, &ModbusMeter::valuesUpdated);
        QSignalSpy lost(&meter, &ModbusMeter::connectionLost);
        QSignalSpy error(&meter, &ModbusMeter::meterError);
        poll(meter);
        poll(meter);
        QCOMPARE(updated.size(), 1);
        QCOMPARE(meter.status(), OK);
        QCOMPARE(QList<double>({ meter.voltage(1), meter.current(1), meter.power(),
                     meter.totalEnergy(), meter.getErrorRate() }),
            QList<double>({ 230.0, 5.0, 1150.0, 42.0, 0.0 }));
        QCOMPARE(meter.info(), QStringLiteral("EM111_AV7:BV12300450017"));
        QVERIFY(std::isnan(meter.sessionEnergy()));

        const int requests = _slave->requestCount();
        meter.useContext(_context);
        QCOMPARE(_slave->requestCount(), requests);
        meter.startSession();
        _slave->setRegisters(20, { 455, 0 });
        for (int i = 0; i < 120; ++i)
            poll(meter);
        QCOMPARE(_slave->requestCount(), requests + 240);
        QVERIFY(qAbs(meter.sessionEnergy() - 3.5) < 1e-9);
        QVERIFY(meter.isStale() && !meter.isFaulty());
        _slave->setRegister(0, 2301);
        poll(meter);
        QVERIFY(!meter.isStale());
        meter.resetStaleValues();
        QVERIFY(std::isnan(meter.voltage(1)));

        _slave->setFault(RegisterSlave::Fault::Exception);
        poll(meter);
        // 122 good polls, then one error in three attempts.
        QCOMPARE(meter.getErrorRate(), 100.0 / 125);
        QCOMPARE(meter.errorTally(),
            (QMap<QString, int> {
                { "Stale value reset", 1 }, { "Slave device or server failure", 1 } }));
        QCOMPARE(lost.size(), 0);
        Clock::advance(14000);
        poll(meter);
        QCOMPARE(lost.size(), 1);
        Clock::advance(3600000);
        poll(meter);
        QCOMPARE(error.size(), 0);
        QVERIFY(meter.isFaulty());
        Clock::advance(86400000);
        poll(meter);
        poll(meter);
        QCOMPARE(error.size(), 1);
        QCOMPARE(
            error.first().first().toString(), QStringLiteral("Slave device or server failure"));
        Clock::advance(86400000);
        poll(meter);
        QCOMPARE(error.size(), 2);
        QCOMPARE(lost.size(), 5);
    }
};

QTEST_GUILESS_MAIN(TestDrivers)
#include "tst_drivers.moc"
