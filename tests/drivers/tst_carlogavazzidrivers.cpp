#include "fakereaderparent.h"
#include "logcapture.h"
#include "modbusem111.h"
#include "modbusem210.h"
#include "modbusem24.h"
#include "modbusem26.h"
#include "modbusem340.h"
#include "ptypair.h"
#include "registerslave.h"

#include <QTest>

#include <cmath>
#include <memory>

using Words = QList<quint16>;
using RegisterMap = QMap<int, Words>;
Q_DECLARE_METATYPE(MeterReading)
Q_DECLARE_METATYPE(RegisterSlave::Fault)

namespace {

constexpr int slaveAddress = 7;
constexpr int writtenRegister = 4356;
constexpr quint16 untouched = 0xABCD;
constexpr float nanF = std::numeric_limits<float>::quiet_NaN();

std::unique_ptr<CarloGavazziDriver> makeDriver(
    const QString &model, ModbusReaderParent *meter, quint8 address)
{
    if (model == QLatin1String("EM111"))
        return std::make_unique<ModbusEM111>(meter, address);
    if (model == QLatin1String("EM210"))
        return std::make_unique<ModbusEM210>(meter, address);
    if (model == QLatin1String("EM24"))
        return std::make_unique<ModbusEM24>(meter, address);
    if (model == QLatin1String("EM26"))
        return std::make_unique<ModbusEM26>(meter, address);
    if (model == QLatin1String("EM340"))
        return std::make_unique<ModbusEM340>(meter, address);
    return nullptr;
}

// Text as the meters store it: two bytes per register, the first one in the low byte.
Words textWords(const QByteArray &text)
{
    Words words;
    for (qsizetype i = 0; i < text.size(); i += 2) {
        const auto low = quint8(text.at(i));
        const auto high = i + 1 < text.size() ? quint8(text.at(i + 1)) : quint8(0);
        words.append(quint16(low | (high << 8)));
    }
    return words;
}

// An INT32 as two registers, less significant word first.
Words int32Words(qint32 value)
{
    const auto bits = quint32(value);
    return { quint16(bits & 0xFFFF), quint16(bits >> 16) };
}

Words concat(std::initializer_list<Words> parts)
{
    Words words;
    for (const Words &part : parts)
        words += part;
    return words;
}

// A meter with plausible identity registers for each model.
RegisterMap staticRegisters(const QString &model)
{
    if (model == QLatin1String("EM111"))
        return { { 770, { 3, 1 } }, { 11, { 101 } }, { 0x5000, textWords("BV12300450017Z") } };
    if (model == QLatin1String("EM210"))
        return { { 770, { 2 } }, { 771, { 5 } }, { 11, { 210 } }, { 0x5007, { 2021 } },
            { 50, { 0 } }, { 0x5000, textWords("ABC1234") } };
    if (model == QLatin1String("EM24"))
        return { { 770, { 0x1203 } }, { 772, { 0x2110 } }, { 11, { 1650 } },
            { 0x5000, textWords("DE0123456789AB") } };
    if (model == QLatin1String("EM26"))
        return { { 770, { 4, 0 } }, { 11, { 78 } }, { 54, { 0 } },
            { 0x1300, textWords("KY9876543210QR") } };
    return { { 770, { 1, 2 } }, { 11, { 341 } }, { 0x5010, { 2019 } }, { 50, { 0 } },
        { 0x5000, textWords("BX2019000123YZ") } };
}

RegisterMap withChanges(
    RegisterMap registers, const RegisterMap &changes, const QList<int> &removed = {})
{
    for (auto it = changes.cbegin(); it != changes.cend(); ++it)
        registers.insert(it.key(), it.value());
    for (int address : removed)
        registers.remove(address);
    return registers;
}

MeterReading reading(std::initializer_list<float> currents, std::initializer_list<float> voltages,
    std::initializer_list<float> powerFactors, float frequency, float power, double energy,
    double energyExported)
{
    MeterReading r;
    std::copy(currents.begin(), currents.end(), r.current);
    std::copy(voltages.begin(), voltages.end(), r.voltage);
    std::copy(powerFactors.begin(), powerFactors.end(), r.powerFactor);
    r.frequency = frequency;
    r.power = power;
    r.energy = energy;
    r.energyExported = energyExported;
    return r;
}

QStringList infoLines(const LogCapture &log, const QString &category)
{
    QStringList lines;
    for (const LogCapture::Line &line : log.lines()) {
        if (line.category == category && line.type == QtInfoMsg)
            lines.append(line.text);
    }
    return lines;
}

} // namespace

class TestCarloGavazziDrivers : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void staticRead_data();
    void staticRead();
    void staticReadFailure_data();
    void staticReadFailure();
    void staticReadLateFault_data();
    void staticReadLateFault();
    void em24ModelName_data();
    void em24ModelName();
    void readValues_data();
    void readValues();
    void readValuesFailure_data();
    void readValuesFailure();
    void refusedSlaveOrContext_data();
    void refusedSlaveOrContext();

private:
    void loadRegisters(const RegisterMap &registers);

    std::unique_ptr<PtyPair> _pair;
    std::unique_ptr<RegisterSlave> _slave;
    modbus_t *_context = nullptr;
};

void TestCarloGavazziDrivers::init()
{
    _pair = std::make_unique<PtyPair>();
    QVERIFY(_pair->isReady());
    _slave = std::make_unique<RegisterSlave>(_pair->second(), slaveAddress);
    QVERIFY(_slave->isReady());
    _context = modbus_new_rtu(_pair->first().toLocal8Bit().constData(), 9600, 'N', 8, 1);
    QVERIFY(_context);
    modbus_set_response_timeout(_context, 0, 500000);
    QCOMPARE(modbus_connect(_context), 0);
}

void TestCarloGavazziDrivers::cleanup()
{
    if (_context) {
        modbus_close(_context);
        modbus_free(_context);
        _context = nullptr;
    }
    _slave.reset();
    _pair.reset();
}

void TestCarloGavazziDrivers::loadRegisters(const RegisterMap &registers)
{
    for (auto it = registers.cbegin(); it != registers.cend(); ++it)
        _slave->setRegisters(it.key(), it.value());
}

void TestCarloGavazziDrivers::staticRead_data()
{
    QTest::addColumn<QString>("model");
    QTest::addColumn<RegisterMap>("registers");
    QTest::addColumn<QString>("modelName");
    QTest::addColumn<quint32>("idCode");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<quint32>("extra");
    QTest::addColumn<QString>("category");
    QTest::addColumn<QStringList>("logLines");
    QTest::addColumn<quint16>("afterWrite");

    const QString meter = QStringLiteral("modbus.meter");
    const QString em111 = QStringLiteral("EM111");
    const QString em210 = QStringLiteral("EM210");
    const QString em26 = QStringLiteral("EM26");
    const QString em340 = QStringLiteral("EM340");

    // The 14th serial byte is cut off; the log ends with the last serial register, 0x5A37.
    QTest::newRow("EM111 keeps 13 serial bytes")
        << em111 << staticRegisters(em111) << "EM111_AV7" << 101u << "BV12300450017" << 0u << meter
        << QStringList { "readStatic Version:  3  Rev  1  ID  101  Year  0  Serial:  BV12300450017 "
                         " 2  23095" }
        << untouched;
    QTest::newRow("EM210 flag clear gives 1")
        << em210 << staticRegisters(em210) << "EM210" << 210u << "ABC1234" << 1u << meter
        << QStringList { "readStatic Version:  2  Rev  5  ID  210  Year  2021  Serial:  ABC1234" }
        << quint16(0);
    QTest::newRow("EM210V flag set gives 2")
        << em210 << withChanges(staticRegisters(em210), { { 11, { 211 } }, { 50, { 0x0100 } } })
        << "EM210V" << 211u << "ABC1234" << 2u << meter
        << QStringList { "readStatic Version:  2  Rev  5  ID  211  Year  2021  Serial:  ABC1234" }
        << quint16(0);
    QTest::newRow("EM24 versions and TCP model name")
        << QStringLiteral("EM24") << staticRegisters(QStringLiteral("EM24")) << "EM24DINAV23XE1PFB"
        << 1650u << "DE0123456789AB" << 0u << QStringLiteral("modbus.reader")
        << QStringList { "readStatic id: 1650 comm ver: v1.2.3 measure ver: v2.1.16 serial: "
                         "DE0123456789AB" }
        << untouched;
    QTest::newRow("EM26 flag clear gives 1")
        << em26 << staticRegisters(em26) << "EM26_96_AV5" << 78u << "KY9876543210QR" << 1u << meter
        << QStringList { "readStatic Version:  4  Rev  0  ID  78  Year  0  Serial:  KY9876543210QR "
                         " 2  21073" }
        << untouched;
    QTest::newRow("EM26 flag set gives 2")
        << em26 << withChanges(staticRegisters(em26), { { 11, { 79 } }, { 54, { 1 } } })
        << "EM26_96_AV6" << 79u << "KY9876543210QR" << 2u << meter
        << QStringList { "readStatic Version:  4  Rev  0  ID  79  Year  1  Serial:  KY9876543210QR "
                         " 2  21073" }
        << untouched;
    QTest::newRow("EM340 with production year")
        << em340 << staticRegisters(em340) << "EM340" << 341u << "BX2019000123YZ" << 1u << meter
        << QStringList { "readStatic Version: 1  Rev: 2  ID: 341  Year: 2019  Serial: "
                         "BX2019000123YZ" }
        << quint16(0);
    QTest::newRow("EM330 without production year")
        << em340
        << withChanges(staticRegisters(em340), { { 11, { 331 } }, { 50, { 3 } } }, { 0x5010 })
        << "EM330_AV6" << 331u << "BX2019000123YZ" << 2u << meter
        << QStringList { "readStatic Unable to get production year.",
               "readStatic Version: 1  Rev: 2  ID: 331  Year: 0  Serial: BX2019000123YZ" }
        << quint16(0);
}

void TestCarloGavazziDrivers::staticRead()
{
    QFETCH(QString, model);
    QFETCH(RegisterMap, registers);
    QFETCH(QString, modelName);
    QFETCH(quint32, idCode);
    QFETCH(QString, serial);
    QFETCH(quint32, extra);
    QFETCH(QString, category);
    QFETCH(QStringList, logLines);
    QFETCH(quint16, afterWrite);

    loadRegisters(registers);
    _slave->setRegister(writtenRegister, untouched);
    FakeReaderParent meter;
    const auto driver = makeDriver(model, &meter, slaveAddress);
    const LogCapture log;

    QVERIFY(driver->readStatic(_context));

    QCOMPARE(meter.errorReasons(), QStringList());
    const auto updates = meter.staticUpdates();
    QCOMPARE(updates.size(), 1);
    QCOMPARE(updates.first().model, modelName);
    QCOMPARE(updates.first().idCode, idCode);
    QCOMPARE(updates.first().serial, serial);
    QCOMPARE(updates.first().extra, extra);
    QCOMPARE(infoLines(log, category), logLines);
    QCOMPARE(_slave->registerValue(writtenRegister), afterWrite);
}

void TestCarloGavazziDrivers::staticReadFailure_data()
{
    QTest::addColumn<QString>("model");
    QTest::addColumn<int>("missingRegister");
    QTest::addColumn<RegisterSlave::Fault>("fault");
    QTest::addColumn<int>("requestsMade");
    QTest::addColumn<QString>("reason");

    const auto none = RegisterSlave::Fault::None;
    const QString illegal = QString::fromLatin1(modbus_strerror(EMBXILADD));
    const struct
    {
        const char *model;
        QList<int> steps;
    } sequences[] = {
        { "EM111", { 770, 11, 0x5000 } },
        { "EM210", { 770, 771, 11, 0x5007, 4356, 50, 0x5000 } },
        { "EM24", { 770, 772, 11, 0x5000 } },
        { "EM26", { 770, 11, 54, 0x1300 } },
        { "EM340", { 770, 11, 0x5010, 4356, 50, 0x5000 } },
    };
    for (const auto &sequence : sequences) {
        int made = 0;
        for (int address : sequence.steps) {
            ++made;
            // The write is answered whatever the map holds; the year of an EM300 is optional.
            if (address == writtenRegister || address == 0x5010)
                continue;
            QTest::addRow("%s register %d refused", sequence.model, address)
                << QString::fromLatin1(sequence.model) << address << none << made << illegal;
        }
    }
    QTest::newRow("EM111 silent") << QStringLiteral("EM111") << -1 << RegisterSlave::Fault::Silent
                                  << 1 << QString::fromLatin1(modbus_strerror(ETIMEDOUT));
}

void TestCarloGavazziDrivers::staticReadFailure()
{
    QFETCH(QString, model);
    QFETCH(int, missingRegister);
    QFETCH(RegisterSlave::Fault, fault);
    QFETCH(int, requestsMade);
    QFETCH(QString, reason);

    loadRegisters(staticRegisters(model));
    _slave->removeRegister(missingRegister);
    _slave->setFault(fault);
    FakeReaderParent meter;
    const auto driver = makeDriver(model, &meter, slaveAddress);

    QVERIFY(!driver->readStatic(_context));

    QCOMPARE(meter.errorReasons(), QStringList { reason });
    QVERIFY(meter.staticUpdates().isEmpty());
    QCOMPARE(_slave->requestCount(), requestsMade);
}

void TestCarloGavazziDrivers::staticReadLateFault_data()
{
    QTest::addColumn<QString>("model");
    QTest::addColumn<int>("faultyRequest");
    QTest::addColumn<QStringList>("reasons");

    QTest::newRow("EM210 write refused") << QStringLiteral("EM210") << 5 << QStringList();
    QTest::newRow("EM340 write refused") << QStringLiteral("EM340") << 4 << QStringList();
    QTest::newRow("EM340 year refused otherwise") << QStringLiteral(
        "EM340") << 3 << QStringList { QString::fromLatin1(modbus_strerror(EMBXSFAIL)) };
}

// The slave starts refusing everything from one request on, which reaches requests that a missing
// register cannot fail (the write) or fails them another way.
void TestCarloGavazziDrivers::staticReadLateFault()
{
    QFETCH(QString, model);
    QFETCH(int, faultyRequest);
    QFETCH(QStringList, reasons);

    loadRegisters(staticRegisters(model));
    FakeReaderParent meter;
    const auto driver = makeDriver(model, &meter, slaveAddress);
    _slave->setFault(RegisterSlave::Fault::Exception, faultyRequest);

    QVERIFY(!driver->readStatic(_context));
    QCOMPARE(meter.errorReasons(), reasons);
    QVERIFY(meter.staticUpdates().isEmpty());
    QCOMPARE(_slave->requestCount(), faultyRequest);
}

void TestCarloGavazziDrivers::em24ModelName_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");

    QTest::newRow("below the range") << 1647 << "UNKNOWN";
    QTest::newRow("first") << 1648 << "EM24DINAV23XE1X";
    QTest::newRow("PFA") << 1652 << "EM24DINAV53XE1PFA";
    QTest::newRow("last") << 1653 << "EM24DINAV53XE1PFB";
    QTest::newRow("above the range") << 1654 << "UNKNOWN";
    QTest::newRow("zero") << 0 << "UNKNOWN";
    QTest::newRow("negative") << -1648 << "UNKNOWN";
}

void TestCarloGavazziDrivers::em24ModelName()
{
    QFETCH(int, code);
    QFETCH(QString, name);

    QCOMPARE(ModbusEM24::codeToString(code), name);
}

void TestCarloGavazziDrivers::readValues_data()
{
    QTest::addColumn<QString>("model");
    QTest::addColumn<RegisterMap>("registers");
    QTest::addColumn<MeterReading>("expected");

    const Words em111Values = concat({ int32Words(2301), int32Words(5234), int32Words(12045) });
    QTest::newRow("EM111 single phase")
        << QStringLiteral("EM111")
        << RegisterMap { { 0, em111Values }, { 20, int32Words(1234567) } }
        << reading({ 5.234f, nanF, nanF }, { 230.1f, nanF, nanF }, { nanF, nanF, nanF }, nanF,
               1204.5f, 123456.7, 0.0);
    QTest::newRow("EM111 reverse power")
        << QStringLiteral("EM111")
        << RegisterMap { { 0, concat({ int32Words(2301), int32Words(5234), int32Words(-12045) }) },
               { 20, int32Words(0) } }
        << reading({ 5.234f, nanF, nanF }, { 230.1f, nanF, nanF }, { nanF, nanF, nanF }, nanF,
               -1204.5f, 0.0, 0.0);

    const RegisterMap threePhase {
        { 0, concat({ int32Words(2301), int32Words(2312), int32Words(2295) }) },
        { 12, concat({ int32Words(10000), int32Words(9876), int32Words(12345) }) },
        { 40, int32Words(68950) },
        // What the EM26 would hold where the others keep their imported energy.
        { 52, int32Words(11111) },
    };
    const MeterReading threePhaseReading = reading({ 10.0f, 9.876f, 12.345f },
        { 230.1f, 231.2f, 229.5f }, { nanF, nanF, nanF }, nanF, 6895.0f, 9876.5, 0.0);
    QTest::newRow("EM210 three phase")
        << QStringLiteral("EM210") << withChanges(threePhase, { { 52, int32Words(98765) } })
        << threePhaseReading;
    QTest::newRow("EM24 three phase")
        << QStringLiteral("EM24") << withChanges(threePhase, { { 52, int32Words(98765) } })
        << threePhaseReading;
    QTest::newRow("EM26 energy at 62")
        << QStringLiteral("EM26") << withChanges(threePhase, { { 62, int32Words(98765) } })
        << threePhaseReading;
    MeterReading reverse = threePhaseReading;
    reverse.power = -6895.0f;
    QTest::newRow("EM210 reverse power")
        << QStringLiteral("EM210")
        << withChanges(threePhase, { { 40, int32Words(-68950) }, { 52, int32Words(98765) } })
        << reverse;

    Words block(40, 0);
    const auto put = [&block](int address, const Words &words) {
        for (qsizetype i = 0; i < words.size(); ++i)
            block[address - 40 + i] = words.at(i);
    };
    put(40, int32Words(-68950));
    put(46, { 987, quint16(-987), 1000 });
    put(51, { 499 });
    put(52, int32Words(123456789));
    put(78, int32Words(4567));
    const Words firstBlock = concat({ int32Words(2301), int32Words(2312), int32Words(2295),
        Words(6, 0), int32Words(10000), int32Words(9876), int32Words(12345) });
    // 12345678.9 kWh has no exact float: the narrowing shows in the result.
    QTest::newRow("EM340 all quantities, energies narrowed")
        << QStringLiteral("EM340") << RegisterMap { { 0, firstBlock }, { 40, block } }
        << reading({ 10.0f, 9.876f, 12.345f }, { 230.1f, 231.2f, 229.5f },
               { 0.987f, -0.987f, 1.0f }, 49.9f, -6895.0f, double(float(123456789 / 10.0)),
               double(float(4567 / 10.0)));
}

void TestCarloGavazziDrivers::readValues()
{
    QFETCH(QString, model);
    QFETCH(RegisterMap, registers);
    QFETCH(MeterReading, expected);

    loadRegisters(registers);
    FakeReaderParent meter;
    const auto driver = makeDriver(model, &meter, slaveAddress);

    QVERIFY(driver->readValues(_context));

    QCOMPARE(meter.readings().size(), 1);
    const MeterReading actual = meter.readings().first();
    for (int phase = 0; phase < 3; ++phase) {
        QCOMPARE(actual.current[phase], expected.current[phase]);
        QCOMPARE(actual.voltage[phase], expected.voltage[phase]);
        QCOMPARE(actual.powerFactor[phase], expected.powerFactor[phase]);
    }
    QCOMPARE(actual.frequency, expected.frequency);
    QCOMPARE(actual.power, expected.power);
    // Energies exactly: a meter's count must not drift by rounding.
    QVERIFY2(actual.energy == expected.energy, qPrintable(QString::number(actual.energy, 'g', 17)));
    QVERIFY2(actual.energyExported == expected.energyExported,
        qPrintable(QString::number(actual.energyExported, 'g', 17)));
    QVERIFY(meter.errorReasons().isEmpty());
}

void TestCarloGavazziDrivers::readValuesFailure_data()
{
    QTest::addColumn<QString>("model");
    QTest::addColumn<RegisterMap>("registers");
    QTest::addColumn<int>("missingRegister");
    QTest::addColumn<RegisterSlave::Fault>("fault");
    QTest::addColumn<int>("requestsMade");

    const auto none = RegisterSlave::Fault::None;
    const RegisterMap em111 { { 0, Words(6, 1) }, { 20, Words(2, 1) } };
    const RegisterMap threePhase { { 0, Words(6, 1) }, { 12, Words(6, 1) }, { 40, Words(2, 1) },
        { 52, Words(2, 1) }, { 62, Words(2, 1) } };
    const RegisterMap em340 { { 0, Words(18, 1) }, { 40, Words(40, 1) } };

    QTest::newRow("EM111 first request refused")
        << QStringLiteral("EM111") << em111 << 5 << none << 1;
    QTest::newRow("EM111 energy refused") << QStringLiteral("EM111") << em111 << 21 << none << 2;
    QTest::newRow("EM210 first request refused")
        << QStringLiteral("EM210") << threePhase << 5 << none << 1;
    QTest::newRow("EM210 energy refused")
        << QStringLiteral("EM210") << threePhase << 53 << none << 4;
    QTest::newRow("EM24 energy refused") << QStringLiteral("EM24") << threePhase << 53 << none << 4;
    QTest::newRow("EM26 energy refused") << QStringLiteral("EM26") << threePhase << 63 << none << 4;
    QTest::newRow("EM340 first block refused")
        << QStringLiteral("EM340") << em340 << 17 << none << 1;
    QTest::newRow("EM340 second block refused")
        << QStringLiteral("EM340") << em340 << 79 << none << 2;
    QTest::newRow("EM210 silent") << QStringLiteral("EM210") << threePhase << -1
                                  << RegisterSlave::Fault::Silent << 1;
}

void TestCarloGavazziDrivers::readValuesFailure()
{
    QFETCH(QString, model);
    QFETCH(RegisterMap, registers);
    QFETCH(int, missingRegister);
    QFETCH(RegisterSlave::Fault, fault);
    QFETCH(int, requestsMade);

    loadRegisters(registers);
    _slave->removeRegister(missingRegister);
    _slave->setFault(fault);
    FakeReaderParent meter;
    const auto driver = makeDriver(model, &meter, slaveAddress);

    QVERIFY(!driver->readValues(_context));

    QVERIFY(meter.readings().isEmpty());
    // Retries and the error routine belong to the read cycle of the base.
    QVERIFY(meter.errorReasons().isEmpty());
    QCOMPARE(_slave->requestCount(), requestsMade);
}

void TestCarloGavazziDrivers::refusedSlaveOrContext_data()
{
    QTest::addColumn<QString>("model");
    QTest::addColumn<bool>("nullContext");
    QTest::addColumn<QString>("reason");

    for (const char *model : { "EM111", "EM210", "EM24", "EM26", "EM340" }) {
        QTest::addRow("%s address 248", model)
            << QString::fromLatin1(model) << false << QString::fromLatin1(modbus_strerror(EINVAL));
        QTest::addRow("%s no context", model)
            << QString::fromLatin1(model) << true << QString::fromLatin1(modbus_strerror(EBADF));
    }
}

// 248 is above the RTU slave range, so libmodbus refuses it. The context was last used for the
// test slave: a driver that went on after the refusal would reach that slave.
void TestCarloGavazziDrivers::refusedSlaveOrContext()
{
    QFETCH(QString, model);
    QFETCH(bool, nullContext);
    QFETCH(QString, reason);

    QCOMPARE(modbus_set_slave(_context, slaveAddress), 0);
    FakeReaderParent meter;
    const auto driver = makeDriver(model, &meter, nullContext ? slaveAddress : 248);
    modbus_t *context = nullContext ? nullptr : _context;

    QVERIFY(!driver->readStatic(context));
    QVERIFY(!driver->readValues(context));

    QCOMPARE(meter.errorReasons(), QStringList { reason });
    QVERIFY(meter.staticUpdates().isEmpty());
    QVERIFY(meter.readings().isEmpty());
    QCOMPARE(_slave->requestCount(), 0);
}

QTEST_GUILESS_MAIN(TestCarloGavazziDrivers)
#include "tst_carlogavazzidrivers.moc"
