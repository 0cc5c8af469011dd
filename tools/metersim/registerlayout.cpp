#include "registerlayout.h"

namespace {

using namespace Quantity;

// The version registers are not worth configuring: masters only show them.
constexpr quint16 Version = 1;
constexpr quint16 Revision = 0;

const QList<QuantityRegister> ThreePhase {
    { Voltage1, 0 },
    { Voltage2, 2 },
    { Voltage3, 4 },
    { Current1, 12 },
    { Current2, 14 },
    { Current3, 16 },
    { Power, 40 },
};

QList<QuantityRegister> withEnergyAt(QList<QuantityRegister> quantities, quint16 address)
{
    quantities.append({ Energy, address });
    return quantities;
}

const RegisterLayout Em340 {
    80,
    withEnergyAt(ThreePhase, 52)
        + QList<QuantityRegister> { { PowerFactor1, 46 }, { PowerFactor2, 47 },
            { PowerFactor3, 48 }, { Frequency, 51 }, { EnergyExported, 78 } },
    { { 770, Version }, { 771, Revision }, { 50, 1 } },
    { { 0x1104, 1 } },
    0x5010,
    0x5000,
    7,
    341,
};

const RegisterLayout Em111 {
    22,
    { { Voltage1, 0 }, { Current1, 2 }, { Power, 4 }, { Energy, 20 } },
    { { 770, Version }, { 771, Revision } },
    {},
    std::nullopt,
    0x5000,
    7,
    101,
};

const RegisterLayout Em210 {
    54,
    withEnergyAt(ThreePhase, 52),
    { { 770, Version }, { 771, Revision }, { 50, 1 } },
    { { 0x1104, 1 } },
    0x5007,
    0x5000,
    4,
    210,
};

const RegisterLayout Em24 {
    54,
    withEnergyAt(ThreePhase, 52),
    { { 770, Version }, { 772, Version } },
    {},
    std::nullopt,
    0x5000,
    7,
    1648,
};

const RegisterLayout Em26 {
    64,
    withEnergyAt(ThreePhase, 62),
    { { 770, Version }, { 771, Revision }, { 54, 1 } },
    {},
    std::nullopt,
    0x1300,
    7,
    78,
};

// Reached over Modbus TCP only; it is recognised by its device identification, so register 11
// carries no model code of its own.
const RegisterLayout Pac3220 {
    809,
    { { Voltage1, 1, QuantityRegister::Float32MswFirst },
        { Voltage2, 3, QuantityRegister::Float32MswFirst },
        { Voltage3, 5, QuantityRegister::Float32MswFirst },
        { Current1, 13, QuantityRegister::Float32MswFirst },
        { Current2, 15, QuantityRegister::Float32MswFirst },
        { Current3, 17, QuantityRegister::Float32MswFirst },
        { Frequency, 55, QuantityRegister::Float32MswFirst },
        { Power, 65, QuantityRegister::Float32MswFirst },
        { Energy, 801, QuantityRegister::Float64MswFirst },
        { EnergyTariff2, 805, QuantityRegister::Float64MswFirst } },
    {},
    {},
    std::nullopt,
    0x5000,
    7,
    0,
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
    case MeterModel::PAC3220:
        return Pac3220;
    }
    Q_UNREACHABLE();
}
