#include "carlogavazzidriver.h"

#include "meterreading.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

#include <cerrno>

namespace {

constexpr int extraWriteRegister = 4356;
constexpr int extraFlagRegister = 50;

void store(MeterReading &reading, CarloGavazziDriver::Quantity quantity, double value)
{
    using Quantity = CarloGavazziDriver::Quantity;
    switch (quantity) {
    case Quantity::Current1:
        reading.current[0] = float(value);
        break;
    case Quantity::Current2:
        reading.current[1] = float(value);
        break;
    case Quantity::Current3:
        reading.current[2] = float(value);
        break;
    case Quantity::Voltage1:
        reading.voltage[0] = float(value);
        break;
    case Quantity::Voltage2:
        reading.voltage[1] = float(value);
        break;
    case Quantity::Voltage3:
        reading.voltage[2] = float(value);
        break;
    case Quantity::PowerFactor1:
        reading.powerFactor[0] = float(value);
        break;
    case Quantity::PowerFactor2:
        reading.powerFactor[1] = float(value);
        break;
    case Quantity::PowerFactor3:
        reading.powerFactor[2] = float(value);
        break;
    case Quantity::Frequency:
        reading.frequency = float(value);
        break;
    case Quantity::Power:
        reading.power = float(value);
        break;
    case Quantity::Energy:
        reading.energy = value;
        break;
    case Quantity::EnergyExported:
        reading.energyExported = value;
        break;
    }
}

} // namespace

CarloGavazziDriver::CarloGavazziDriver(ModbusReaderParent *meter, quint8 address, Layout layout)
    : ModbusRegisterReader(meter, address)
    , _layout(layout)
{
}

bool CarloGavazziDriver::readValues(modbus_t *context)
{
    if (!selectSlave(context))
        return false;

    MeterReading reading;
    // The Carlo Gavazzi drivers report an export they do not measure as none rather than unknown.
    reading.energyExported = 0.0;
    std::array<quint16, MODBUS_MAX_READ_REGISTERS> words {};
    for (const Request &request : _layout.requests) {
        if (parentMeter()->readRegisters(context, request.address, request.count, words.data())
            != request.count)
            return false;
        for (const Field &field : _layout.fields) {
            if (!covers(request, field))
                continue;
            const double raw = decode(field, &words[field.address - request.address]);
            store(reading, field.quantity, finishValue(field.quantity, raw / field.divisor));
        }
    }
    parentMeter()->publishReading(reading);
    return true;
}

double CarloGavazziDriver::decode(const Field &field, const quint16 *words)
{
    switch (field.encoding) {
    case Encoding::Int32LswFirst:
        return RegisterDecoding::int32LswFirst(words);
    case Encoding::Int16:
        return RegisterDecoding::int16(words[0]);
    case Encoding::Uint16:
        return words[0];
    }
    return 0.0;
}

double CarloGavazziDriver::finishValue(Quantity, double value) const
{
    return value;
}

bool CarloGavazziDriver::beginStaticRead(modbus_t *context)
{
    if (selectSlave(context))
        return true;
    reportStaticFailure();
    return false;
}

bool CarloGavazziDriver::readStaticRegisters(
    modbus_t *context, int address, int count, quint16 *words)
{
    if (parentMeter()->readRegisters(context, address, count, words) == count)
        return true;
    reportStaticFailure();
    return false;
}

void CarloGavazziDriver::reportStaticFailure()
{
    parentMeter()->errorRoutine(QString::fromLatin1(modbus_strerror(errno)));
}

std::optional<quint32> CarloGavazziDriver::readExtraAfterWrite(modbus_t *context)
{
    if (parentMeter()->writeRegister(context, extraWriteRegister, 0) == -1)
        return std::nullopt;
    quint16 flag = 0;
    if (!readStaticRegisters(context, extraFlagRegister, 1, &flag))
        return std::nullopt;
    return extraFromFlag(flag);
}
