#include "registerlayout.h"

#include <modbus.h>

namespace {

using namespace Quantity;
using RegisterEncoding::TextOrder;

// The version registers are not worth configuring: masters only show them.
constexpr quint16 Version = 1;
constexpr quint16 Revision = 0;
constexpr quint16 IdCodeAddress = 11;

const QList<quint8> HoldingAndInput { MODBUS_FC_READ_HOLDING_REGISTERS,
    MODBUS_FC_READ_INPUT_REGISTERS };

// How the Carlo Gavazzi meters, and the Garo ones that follow them, store each quantity.
QuantityRegister carloGavazzi(Quantity::Kind quantity, quint16 address)
{
    switch (quantity) {
    case Current1:
    case Current2:
    case Current3:
        return { quantity, address, RegisterEncoding::Int32LswFirst, 3 };
    case PowerFactor1:
    case PowerFactor2:
    case PowerFactor3:
        return { quantity, address, RegisterEncoding::Int16, 3 };
    case Frequency:
        return { quantity, address, RegisterEncoding::Int16, 1 };
    case Voltage1:
    case Voltage2:
    case Voltage3:
    case Power:
    case Energy:
    case EnergyExported:
    case ApparentPower3:
    case EnergyTariff2:
        return { quantity, address, RegisterEncoding::Int32LswFirst, 1 };
    }
    Q_UNREACHABLE();
}

QList<QuantityRegister> carloGavazzi(std::initializer_list<std::pair<Quantity::Kind, quint16>> map)
{
    QList<QuantityRegister> registers;
    for (const auto &[quantity, address] : map)
        registers.append(carloGavazzi(quantity, address));
    return registers;
}

const QList<QuantityRegister> ThreePhase = carloGavazzi({
    { Voltage1, 0 },
    { Voltage2, 2 },
    { Voltage3, 4 },
    { Current1, 12 },
    { Current2, 14 },
    { Current3, 16 },
    { Power, 40 },
});

QList<QuantityRegister> withEnergyAt(QList<QuantityRegister> quantities, quint16 address)
{
    quantities.append(carloGavazzi(Energy, address));
    return quantities;
}

// The real-time block of the EM300 and EM500 series, 80 registers from 0.
const QList<QuantityRegister> FullThreePhase = withEnergyAt(ThreePhase, 52)
    + carloGavazzi({ { ApparentPower3, 28 }, { PowerFactor1, 46 }, { PowerFactor2, 47 },
        { PowerFactor3, 48 }, { Frequency, 51 }, { EnergyExported, 78 } });

QList<FixedRegister> textRegisters(quint16 address, int count, const QByteArray &text)
{
    QList<FixedRegister> registers;
    const QList<quint16> words = RegisterEncoding::text(text, count, TextOrder::HighByteFirst);
    for (int index = 0; index < count; ++index)
        registers.append({ static_cast<quint16>(address + index), words[index] });
    return registers;
}

const RegisterLayout Em340 {
    HoldingAndInput,
    { { 0, 80 } },
    FullThreePhase,
    { { 770, Version }, { 771, Revision }, { 50, 1 } },
    { { 0x1104, 1 } },
    IdCodeAddress,
    341,
    0x5010,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

const RegisterLayout Em111 {
    HoldingAndInput,
    { { 0, 22 } },
    carloGavazzi({ { Voltage1, 0 }, { Current1, 2 }, { Power, 4 }, { Energy, 20 } }),
    { { 770, Version }, { 771, Revision } },
    {},
    IdCodeAddress,
    101,
    std::nullopt,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

const RegisterLayout Em210 {
    HoldingAndInput,
    { { 0, 54 } },
    withEnergyAt(ThreePhase, 52),
    { { 770, Version }, { 771, Revision }, { 50, 1 } },
    { { 0x1104, 1 } },
    IdCodeAddress,
    210,
    0x5007,
    { 0x5000, 4, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

const RegisterLayout Em24 {
    HoldingAndInput,
    { { 0, 54 } },
    withEnergyAt(ThreePhase, 52),
    { { 770, Version }, { 772, Version } },
    {},
    IdCodeAddress,
    1648,
    std::nullopt,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

const RegisterLayout Em26 {
    HoldingAndInput,
    { { 0, 64 } },
    withEnergyAt(ThreePhase, 62),
    { { 770, Version }, { 771, Revision }, { 54, 1 } },
    {},
    IdCodeAddress,
    78,
    std::nullopt,
    { 0x1300, 7, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

// Register 50 holds the phase sequence, 0 for L1-L2-L3.
const RegisterLayout Em540 {
    HoldingAndInput,
    { { 0, 80 } },
    FullThreePhase,
    { { 770, Version }, { 771, Revision }, { 50, 0 } },
    { { 0x1104, 1 } },
    IdCodeAddress,
    1762,
    std::nullopt,
    { 0x5000, 8, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

const RegisterLayout Em511 {
    HoldingAndInput,
    { { 0, 34 } },
    carloGavazzi({ { Voltage1, 0x00 }, { Current1, 0x02 }, { Power, 0x04 }, { PowerFactor1, 0x0E },
        { Frequency, 0x0F }, { Energy, 0x10 }, { EnergyExported, 0x20 } }),
    { { 770, Version } },
    {},
    IdCodeAddress,
    1794,
    std::nullopt,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::HighByteFirst,
};

const RegisterLayout Em580 {
    HoldingAndInput,
    { { 0, 80 } },
    FullThreePhase,
    { { 770, Version }, { 771, Version }, { 50, 0 } },
    {},
    IdCodeAddress,
    1843,
    0x5007,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::HighByteFirst,
};

// Voltages and currents fill only the lower word of their register pair; register 11, the
// identification code, is the other word of the third current's pair.
const RegisterLayout Gm3d {
    HoldingAndInput,
    { { 0, 16 } },
    {
        { Voltage1, 0, RegisterEncoding::Uint16, 1 },
        { Voltage2, 2, RegisterEncoding::Uint16, 1 },
        { Voltage3, 4, RegisterEncoding::Uint16, 1 },
        { Current1, 6, RegisterEncoding::Uint16, 3 },
        { Current2, 8, RegisterEncoding::Uint16, 3 },
        { Current3, 10, RegisterEncoding::Uint16, 3 },
        carloGavazzi(Power, 12),
        carloGavazzi(Energy, 14),
    },
    { { 770, Version }, { 771, Revision }, { 16, 1 }, { 0x1103, 1 } },
    {},
    IdCodeAddress,
    64,
    std::nullopt,
    { 0x1104, 2, SerialRegisters::NumberLswFirst },
    TextOrder::LowByteFirst,
};

const RegisterLayout Gm3t {
    HoldingAndInput,
    { { 0, 54 } },
    withEnergyAt(ThreePhase, 52),
    { { 770, Version }, { 771, Revision }, { 50, 0 } },
    {},
    IdCodeAddress,
    57,
    std::nullopt,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::LowByteFirst,
};

// Input registers only. Its packed values carry their own exponent, here -decimals.
const RegisterLayout Wm3m6 {
    { MODBUS_FC_READ_INPUT_REGISTERS },
    { { 105, 67 }, { 434, 2 } },
    {
        { Frequency, 105, RegisterEncoding::PackedUnsigned, 2 },
        { Voltage1, 107, RegisterEncoding::PackedUnsigned, 2 },
        { Voltage2, 109, RegisterEncoding::PackedUnsigned, 2 },
        { Voltage3, 111, RegisterEncoding::PackedUnsigned, 2 },
        { Current1, 126, RegisterEncoding::PackedUnsigned, 3 },
        { Current2, 128, RegisterEncoding::PackedUnsigned, 3 },
        { Current3, 130, RegisterEncoding::PackedUnsigned, 3 },
        { Power, 140, RegisterEncoding::PackedSigned, 1 },
        { PowerFactor1, 166, RegisterEncoding::PackedPowerFactor, 4 },
        { PowerFactor2, 168, RegisterEncoding::PackedPowerFactor, 4 },
        { PowerFactor3, 170, RegisterEncoding::PackedPowerFactor, 4 },
        { Energy, 434, RegisterEncoding::Int32MswFirst, 4 },
    },
    textRegisters(1, 8, "WM3M6") + QList<FixedRegister> { { 13, 123 }, { 14, 2 } },
    {},
    std::nullopt,
    0,
    std::nullopt,
    { 9, 4, SerialRegisters::Text },
    TextOrder::HighByteFirst,
};

// Reached over Modbus TCP only; it is recognised by its device identification, so register 11
// carries no model code of its own.
const RegisterLayout Pac3220 {
    { MODBUS_FC_READ_HOLDING_REGISTERS },
    { { 0, 19 }, { 55, 12 }, { 801, 8 } },
    { { Voltage1, 1, RegisterEncoding::Float32MswFirst, 0 },
        { Voltage2, 3, RegisterEncoding::Float32MswFirst, 0 },
        { Voltage3, 5, RegisterEncoding::Float32MswFirst, 0 },
        { Current1, 13, RegisterEncoding::Float32MswFirst, 0 },
        { Current2, 15, RegisterEncoding::Float32MswFirst, 0 },
        { Current3, 17, RegisterEncoding::Float32MswFirst, 0 },
        { Frequency, 55, RegisterEncoding::Float32MswFirst, 0 },
        { Power, 65, RegisterEncoding::Float32MswFirst, 0 },
        { Energy, 801, RegisterEncoding::Float64MswFirst, 0 },
        { EnergyTariff2, 805, RegisterEncoding::Float64MswFirst, 0 } },
    {},
    {},
    std::nullopt,
    0,
    std::nullopt,
    { 0x5000, 7, SerialRegisters::Text },
    TextOrder::HighByteFirst,
};

}

const RegisterLayout &RegisterLayout::of(MeterModel::Type model)
{
    switch (model) {
    case MeterModel::EM340:
        return Em340;
    case MeterModel::EM111:
        return Em111;
    case MeterModel::EM210:
        return Em210;
    case MeterModel::EM24:
        return Em24;
    case MeterModel::EM26:
        return Em26;
    case MeterModel::EM540:
        return Em540;
    case MeterModel::EM511:
        return Em511;
    case MeterModel::EM580:
        return Em580;
    case MeterModel::GM3D:
        return Gm3d;
    case MeterModel::GM3T:
        return Gm3t;
    case MeterModel::WM3M6:
        return Wm3m6;
    case MeterModel::PAC3220:
        return Pac3220;
    }
    Q_UNREACHABLE();
}
