#include "fakereaderparent.h"
#include "logcapture.h"
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
#include "ptypair.h"
#include "registerslave.h"

#include <QTest>

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

// Text as the older meters store it: two bytes per register, the first one in the low byte.
Words textWords(const QByteArray &text)
{
    Words words;
    for (qsizetype i = 0; i < text.size(); i += 2)
        words.append(quint8(text.at(i)) | (i + 1 < text.size() ? quint8(text.at(i + 1)) << 8 : 0));
    return words;
}

// Text as the EM500 series stores it: the first character of a register in its high byte.
Words textWordsHighFirst(const QByteArray &text)
{
    Words words;
    for (qsizetype i = 0; i < text.size(); i += 2)
        words.append(quint8(text.at(i)) << 8 | (i + 1 < text.size() ? quint8(text.at(i + 1)) : 0));
    return words;
}

// INT32s as two registers each, less significant word first.
Words int32s(std::initializer_list<qint32> values)
{
    Words words;
    for (qint32 value : values)
        words << quint16(quint32(value) & 0xFFFF) << quint16(quint32(value) >> 16);
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
            { 0x5000, textWordsHighFirst("EM511SN0000042") } };
    if (model == QLatin1String("EM540"))
        return { { 770, { 3 } }, { 771, { 1 } }, { 11, { 1762 } },
            { 0x5000, textWords("BY2110000042001X") }, { 50, { 0xFFFF } } };
    if (model == QLatin1String("EM580"))
        return { { 770, { 0x1203, 0x2110 } }, { 11, { 1843 } },
            { 0x5000, textWordsHighFirst("EM580SN0000099") + Words { 2023 } } };
    if (model == QLatin1String("GM3D"))
        return { { 770, { 2, 1 } }, { 11, { 64 } }, { 16, { 2020 } }, { 0x1103, { 5 } },
            { 0x1104, int32s({ 123456789 }) } };
    if (model == QLatin1String("GM3T"))
        return { { 770, { 1 } }, { 771, { 2 } }, { 11, { 70 } }, { 50, { 1 } },
            { 0x5000, textWords("GM3T0000000007") } };
    return { { 770, { 1, 2 } }, { 11, { 341 } }, { 50, { 0 } },
        { 0x5000, textWords("BX2019000123YZ") } };
}

} // namespace

class TestCarloGavazziDrivers : public QObject
{
    Q_OBJECT

    std::unique_ptr<PtyPair> _pair;
    std::unique_ptr<RegisterSlave> _slave;
    modbus_t *_context = nullptr;

    void loadRegisters(const RegisterMap &registers)
    {
        for (auto it = registers.cbegin(); it != registers.cend(); ++it)
            _slave->setRegisters(it.key(), it.value());
    }

private slots:
    void init()
    {
        _pair = std::make_unique<PtyPair>();
        QVERIFY(_pair->isReady());
        _slave = std::make_unique<RegisterSlave>(_pair->second(), slaveAddress);
        QVERIFY(_slave->isReady());
        _slave->setRegister(writtenRegister, untouched);
        _context = modbus_new_rtu(_pair->first().toLocal8Bit().constData(), 9600, 'N', 8, 1);
        QVERIFY(_context);
        modbus_set_response_timeout(_context, 0, 500000);
        QCOMPARE(modbus_set_slave(_context, slaveAddress), 0);
        QCOMPARE(modbus_connect(_context), 0);
    }

    void cleanup()
    {
        if (_context) {
            modbus_close(_context);
            modbus_free(_context);
            _context = nullptr;
        }
        _slave.reset();
        _pair.reset();
    }

    void staticRead_data()
    {
        QTest::addColumn<QString>("model");
        QTest::addColumn<RegisterMap>("changes");
        QTest::addColumn<QString>("published"); // model name, id code, serial, extra value
        QTest::addColumn<QString>("logged");
        QTest::addColumn<bool>("writes");

        // An EM111's serial has 13 bytes: the 14th is not part of it.
        QTest::newRow("EM111 13 serial bytes")
            << "EM111" << RegisterMap {} << "EM111_AV7 101 BV12300450017 0"
            << "Rev  1" << false;
        QTest::newRow("EM210V flag set gives 2")
            << "EM210" << RegisterMap { { 11, { 211 } }, { 50, { 0x0100 } } }
            << "EM210V 211 ABC1234 2"
            << "Rev  5  ID  211  Year  2021" << true;
        QTest::newRow("EM24 versions")
            << "EM24" << RegisterMap {} << "EM24DINAV53XE1PFB 1653 DE0123456789AB 0"
            << "comm ver: v1.2.3 measure ver: v2.1.16" << false;
        QTest::newRow("EM24 code past the names")
            << "EM24" << RegisterMap { { 11, { 1654 } } } << "UNKNOWN 1654 DE0123456789AB 0"
            << "id: 1654" << false;
        QTest::newRow("EM26 flag set gives 2")
            << "EM26" << RegisterMap {} << "EM26_96_AV6 79 KY9876543210 2"
            << "Year  1" << false;
        QTest::newRow("EM340 with production year")
            << "EM340" << RegisterMap { { 0x5010, { 2019 } } } << "EM340 341 BX2019000123YZ 1"
            << "Year: 2019" << true;
        QTest::newRow("EM330 without production year")
            << "EM340" << RegisterMap { { 11, { 331 } }, { 50, { 3 } } }
            << "EM330_AV6 331 BX2019000123YZ 2"
            << "Unable to get production year." << true;
        // The EM500 series: serials with the first character in the high byte.
        QTest::newRow("EM511") << "EM511" << RegisterMap {} << "EM511 1794 EM511SN0000042 0"
                               << "Firmware:  v1.2.3" << false;
        QTest::newRow("EM580 year as extra value")
            << "EM580" << RegisterMap {} << "EM580 1843 EM580SN0000099 2023"
            << "Communication firmware:  v2.1.16" << false;
        // The extra value tells the phase sequence: 1 forward, 2 reversed, 0 unknown.
        QTest::newRow("EM540 reversed phase sequence")
            << "EM540" << RegisterMap {} << "EM540 1762 BY2110000042001X 2"
            << "Static:  43981  Phase sequence:  -1" << false;
        QTest::newRow("EM540 unknown phase sequence")
            << "EM540" << RegisterMap { { 50, { 5 } } } << "EM540 1762 BY2110000042001X 0"
            << "readStatic Unknown phase sequence value 5" << false;
        QTest::newRow("GM3D numeric serial")
            << "GM3D" << RegisterMap {} << "EM33_DIN_AV3 64 123456789 0"
            << "Year  2020  Serial:  123456789  2  5" << false;
        QTest::newRow("GM3T EM21 retrofit")
            << "GM3T" << RegisterMap {} << "EM21_72R 70 GM3T0000000007 2"
            << "ID  70" << false;
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
        FakeReaderParent meter;
        const auto driver = makeDriver.value(model)(&meter, slaveAddress);
        const LogCapture log;

        QVERIFY(driver->readStatic(_context));

        QCOMPARE(meter.errorReasons(), QStringList());
        QCOMPARE(meter.staticUpdates().size(), 1);
        const FakeReaderParent::StaticData update = meter.staticUpdates().constFirst();
        QCOMPARE(QStringLiteral("%1 %2 %3 %4")
                     .arg(update.model, QString::number(update.idCode), update.serial,
                         QString::number(update.extra)),
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

        const int own = slaveAddress;
        const auto refused = RegisterSlave::Fault::Exception;
        const auto reason
            = [](int error) { return QStringList { QString::fromLatin1(modbus_strerror(error)) }; };
        const QStringList failure = reason(EMBXSFAIL);
        const QStringList none;
        // A failed static request runs the error routine with libmodbus's text.
        QTest::newRow("EM111 serial") << "EM111" << own << false << refused << 3 << failure;
        QTest::newRow("EM111 silent")
            << "EM111" << own << false << RegisterSlave::Fault::Silent << 1 << reason(ETIMEDOUT);
        QTest::newRow("EM24 measurement version")
            << "EM24" << own << false << refused << 2 << failure;
        QTest::newRow("EM26 flag") << "EM26" << own << false << refused << 3 << failure;
        QTest::newRow("EM210 flag after the write")
            << "EM210" << own << false << refused << 6 << failure;
        QTest::newRow("EM340 year, not missing")
            << "EM340" << own << false << refused << 3 << failure;
        // A refused write of register 4356 fails the static read quietly.
        QTest::newRow("EM210 write") << "EM210" << own << false << refused << 5 << none;
        QTest::newRow("EM340 write") << "EM340" << own << false << refused << 4 << none;
        // Retries and the error routine of a measurement belong to the read cycle of the base.
        QTest::newRow("EM111 energy") << "EM111" << own << true << refused << 2 << none;
        QTest::newRow("EM26 energy") << "EM26" << own << true << refused << 4 << none;
        QTest::newRow("EM340 second block") << "EM340" << own << true << refused << 2 << none;
        QTest::newRow("GM3T serial after the code")
            << "GM3T" << own << false << refused << 5 << failure;
        // The EM540 hands every failure of its own reads to the error routine, exceptions
        // included, and lets none of them out.
        QTest::newRow("EM540 phase sequence") << "EM540" << own << false << refused << 6 << failure;
        QTest::newRow("EM540 bulk block") << "EM540" << own << true << refused << 1 << failure;
        QTest::newRow("EM540 bulk block silent")
            << "EM540" << own << true << RegisterSlave::Fault::Silent << 1 << reason(ETIMEDOUT);
        // 248 is above the RTU slave range, so libmodbus refuses it. The context is set to the
        // test slave: a driver that went on after the refusal would reach it.
        for (const QString &model : makeDriver.keys()) {
            QTest::addRow("%s address 248", qPrintable(model))
                << model << 248 << false << refused << 0 << reason(EINVAL);
            QTest::addRow("%s address 248, measurement", qPrintable(model))
                << model << 248 << true << refused << 0
                << (model == QLatin1String("EM540") ? reason(EINVAL) : none);
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
        FakeReaderParent meter;
        const auto driver = makeDriver.value(model)(&meter, quint8(address));

        QVERIFY(!(measurement ? driver->readValues(_context) : driver->readStatic(_context)));

        QCOMPARE(meter.errorReasons(), reasons);
        QVERIFY(meter.staticUpdates().isEmpty());
        QVERIFY(meter.readings().isEmpty());
        QCOMPARE(_slave->requestCount(), faultyRequest);
    }
};

QTEST_GUILESS_MAIN(TestCarloGavazziDrivers)
#include "tst_carlogavazzidrivers.moc"
