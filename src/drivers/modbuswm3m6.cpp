#include "modbuswm3m6.h"

#include "driverlogging.h"
#include "meterreading.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

#include <array>

namespace {

constexpr int softwareReferenceRegister = 13;
constexpr int hardwareReferenceRegister = 14;
constexpr int modelRegister = 1;
constexpr int modelRegisterCount = 8;
constexpr int serialRegister = 9;
constexpr int serialRegisterCount = 4;

constexpr int voltageRegister = 107;
constexpr int currentRegister = 126;
constexpr int powerFactorRegister = 166;
constexpr int frequencyRegister = 105;
constexpr int powerRegister = 140;
constexpr int energyRegister = 434;
constexpr int phaseRegisters = 6;
// Two registers per value, more significant word first.
constexpr int valueRegisters = 2;
constexpr double energyDivisor = 10000.0;

QString hexWords(const quint16 *words, int count)
{
    QStringList texts;
    for (int i = 0; i < count; ++i)
        texts << QStringLiteral("%1").arg(words[i], 4, 16, QLatin1Char('0'));
    return texts.join(QLatin1Char(' '));
}

} // namespace

ModbusWM3M6::ModbusWM3M6(ModbusReaderParent *meter, quint8 address)
    : ModbusRegisterReader(meter, address)
{
}

bool ModbusWM3M6::readStatic(modbus_t *context)
{
    quint16 software = 0;
    quint16 hardware = 0;
    std::array<quint16, modelRegisterCount> model {};
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!selectSlave(context)
        || !_read(context, softwareReferenceRegister, 1, &software, "readStatic",
            "Failure to read REG_SW_REFERENCE")
        || !_read(context, hardwareReferenceRegister, 1, &hardware, "readStatic",
            "Failure to read REG_HW_REFERENCE")
        || !_read(context, modelRegister, modelRegisterCount, model.data(), "readStatic",
            "Failure to read REG_MODEL_NR")
        || !_read(context, serialRegister, serialRegisterCount, serialWords.data(), "readStatic",
            "Failure to read Serial"))
        return false;

    qCDebug(lcModbusMeter).noquote() << "buffertest" << hexWords(model.data(), modelRegisterCount)
                                     << hexWords(serialWords.data(), serialRegisterCount);
    // Its text registers carry the first character in the high byte; blanks pad them.
    const QString modelText
        = RegisterDecoding::textHighByteFirst(model.data(), modelRegisterCount).trimmed();
    const QString serial
        = RegisterDecoding::textHighByteFirst(serialWords.data(), serialRegisterCount).trimmed();
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Software ref:" << float(software) / 100.0f << " Hardware ref:" << hardware
        << " Model ID" << modelText << " Serial:" << serial;
    parentMeter()->updateStatic(modelText, 0, serial, 0);
    return true;
}

bool ModbusWM3M6::readValues(modbus_t *context)
{
    std::array<quint16, phaseRegisters> voltages {};
    std::array<quint16, phaseRegisters> currents {};
    std::array<quint16, phaseRegisters> powerFactors {};
    std::array<quint16, valueRegisters> frequency {};
    std::array<quint16, valueRegisters> power {};
    std::array<quint16, valueRegisters> energy {};
    const char *const function = "readRegisters";
    if (!selectSlave(context)
        || !_read(context, voltageRegister, phaseRegisters, voltages.data(), function,
            "Failure to read voltage")
        || !_read(context, currentRegister, phaseRegisters, currents.data(), function,
            "Failure to read current")
        || !_read(context, powerFactorRegister, phaseRegisters, powerFactors.data(), function,
            "Failure to read powerfactor")
        || !_read(context, frequencyRegister, valueRegisters, frequency.data(), function,
            "Failure to read freq")
        || !_read(
            context, powerRegister, valueRegisters, power.data(), function, "Failure to read power")
        || !_read(context, energyRegister, valueRegisters, energy.data(), function,
            "Failure to read energy"))
        return false;

    MeterReading reading;
    for (int phase = 0; phase < 3; ++phase) {
        const int offset = phase * valueRegisters;
        reading.voltage[phase] = float(RegisterDecoding::packedFormatA(&voltages[offset]));
        reading.current[phase] = float(RegisterDecoding::packedFormatA(&currents[offset]));
        reading.powerFactor[phase]
            = float(RegisterDecoding::packedPowerFactor(&powerFactors[offset]));
    }
    reading.frequency = float(RegisterDecoding::packedFormatA(frequency.data()));
    reading.power = float(RegisterDecoding::packedFormatB(power.data()));
    reading.energy = RegisterDecoding::int32MswFirst(energy.data()) / energyDivisor;
    reading.energyExported = 0.0;
    parentMeter()->publishReading(reading);
    return true;
}

bool ModbusWM3M6::_read(modbus_t *context, int address, int count, quint16 *words,
    const char *function, const char *failure) const
{
    if (parentMeter()->readInputRegisters(context, address, count, words) == count)
        return true;
    qCWarning(lcModbusMeter) << function << failure;
    return false;
}
