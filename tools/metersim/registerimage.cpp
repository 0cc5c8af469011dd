#include "registerimage.h"

#include "metervalues.h"
#include "registerlayout.h"

#include <bit>

RegisterImage::RegisterImage(
    const RegisterLayout &layout, const MeterValues &values, const QMap<quint16, quint16> &writable)
{
    placeMeasurements(layout, values);
    placeIdentification(layout, values);
    _registers.insert(writable);
}

std::optional<QList<quint16>> RegisterImage::read(quint16 address, int count) const
{
    const int last = address + count - 1;
    if (last > 0xFFFF)
        return std::nullopt;
    QList<quint16> result;
    for (int current = address; current <= last; ++current) {
        const auto found = _registers.constFind(static_cast<quint16>(current));
        if (found == _registers.cend())
            return std::nullopt;
        result.append(*found);
    }
    return result;
}

void RegisterImage::placeMeasurements(const RegisterLayout &layout, const MeterValues &values)
{
    for (quint16 address = 0; address < layout.measurementCount; ++address)
        _registers.insert(address, 0);
    for (const QuantityRegister &slot : layout.quantities) {
        const double value = values.quantity(slot.quantity);
        switch (slot.encoding) {
        case QuantityRegister::Scaled:
            placeScaled(slot, value);
            break;
        case QuantityRegister::Float32MswFirst:
            placeMswFirst(slot.address, std::bit_cast<quint32>(float(value)), 2);
            break;
        case QuantityRegister::Float64MswFirst:
            placeMswFirst(slot.address, std::bit_cast<quint64>(value), 4);
            break;
        }
    }
}

// INT32 values go low word first, which is how these meters order them.
void RegisterImage::placeScaled(const QuantityRegister &slot, double value)
{
    const auto raw = static_cast<quint32>(Quantity::encode(slot.quantity, value));
    _registers.insert(slot.address, static_cast<quint16>(raw));
    if (Quantity::isWide(slot.quantity))
        _registers.insert(slot.address + 1, static_cast<quint16>(raw >> 16));
}

void RegisterImage::placeMswFirst(quint16 address, quint64 bits, int words)
{
    for (int index = 0; index < words; ++index) {
        const int shift = 16 * (words - 1 - index);
        _registers.insert(address + index, static_cast<quint16>(bits >> shift));
    }
}

void RegisterImage::placeIdentification(const RegisterLayout &layout, const MeterValues &values)
{
    _registers.insert(RegisterLayout::IdCodeAddress, values.idCode());
    for (const FixedRegister &fixed : layout.fixed)
        _registers.insert(fixed.address, fixed.value);
    if (layout.yearAddress && values.year())
        _registers.insert(*layout.yearAddress, *values.year());
    placeSerial(layout, values.serial());
}

// Two characters per register, the first one in the low byte, zero-padded.
void RegisterImage::placeSerial(const RegisterLayout &layout, const QByteArray &serial)
{
    const QByteArray padded = serial.leftJustified(layout.serialRegisters * 2, '\0', true);
    for (quint16 index = 0; index < layout.serialRegisters; ++index) {
        const auto low = static_cast<quint8>(padded[index * 2]);
        const auto high = static_cast<quint8>(padded[index * 2 + 1]);
        _registers.insert(layout.serialAddress + index, static_cast<quint16>(low | high << 8));
    }
}
