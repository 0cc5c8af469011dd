#include "registerimage.h"

#include "metervalues.h"
#include "registerlayout.h"

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
    for (const RegisterRange &block : layout.blocks)
        place(block.first, QList<quint16>(block.count, 0));
    for (const QuantityRegister &slot : layout.quantities)
        place(slot.address,
            RegisterEncoding::encode(slot.encoding, slot.decimals, values.quantity(slot.quantity)));
}

// After the measurements, so that an identification code inside a block wins.
void RegisterImage::placeIdentification(const RegisterLayout &layout, const MeterValues &values)
{
    if (layout.idCodeAddress)
        _registers.insert(*layout.idCodeAddress, values.idCode());
    for (const FixedRegister &fixed : layout.fixed)
        _registers.insert(fixed.address, fixed.value);
    if (layout.yearAddress && values.year())
        _registers.insert(*layout.yearAddress, *values.year());
    placeSerial(layout, values.serial());
}

void RegisterImage::placeSerial(const RegisterLayout &layout, const QByteArray &serial)
{
    const SerialRegisters &registers = layout.serial;
    if (registers.format == SerialRegisters::NumberLswFirst) {
        const quint32 number = serial.toUInt();
        place(registers.address,
            { static_cast<quint16>(number), static_cast<quint16>(number >> 16) });
    } else {
        place(registers.address, RegisterEncoding::text(serial, registers.count, layout.textOrder));
    }
}

void RegisterImage::place(quint16 address, const QList<quint16> &words)
{
    for (qsizetype index = 0; index < words.size(); ++index)
        _registers.insert(static_cast<quint16>(address + index), words[index]);
}
