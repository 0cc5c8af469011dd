#include "meter.h"

#include "registerimage.h"
#include "registerlayout.h"

#include <QRandomGenerator>
#include <cmath>

namespace {

constexpr double VoltageJitter = 0.3;
constexpr double SecondsPerHour = 3600;
constexpr double WattsPerKilowatt = 1000;
constexpr std::array<Quantity::Kind, 3> Voltages { Quantity::Voltage1, Quantity::Voltage2,
    Quantity::Voltage3 };

QMap<quint16, quint16> initialWritable(const RegisterLayout &layout)
{
    QMap<quint16, quint16> registers;
    for (const FixedRegister &initial : layout.writable)
        registers.insert(initial.address, initial.value);
    return registers;
}

}

Meter::Meter(int id, MeterModel::Type model)
    : _id(id)
    , _model(model)
    , _layout(&RegisterLayout::of(model))
    , _values(*_layout, id)
    , _writable(initialWritable(*_layout))
{
}

std::optional<int> Meter::parseId(const QString &text)
{
    bool ok = false;
    const int id = text.toInt(&ok);
    if (!ok || id < FirstId || id > LastId)
        return std::nullopt;
    return id;
}

std::optional<QList<quint16>> Meter::read(quint8 function, quint16 address, int count) const
{
    if (!_layout->reads(function))
        return std::nullopt;
    return RegisterImage(*_layout, presentedValues(), _writable).read(address, count);
}

bool Meter::set(const QString &key, const QString &text, QString *error)
{
    if (!_values.set(key, text, error))
        return false;
    _voltageOffsets.fill(0);
    return true;
}

bool Meter::write(quint16 address, quint16 value)
{
    const auto found = _writable.find(address);
    if (found == _writable.end())
        return false;
    *found = value;
    return true;
}

void Meter::drift(double seconds)
{
    if (_fault == Fault::Frozen)
        return;
    jitterVoltages();
    integrateEnergy(seconds);
}

MeterValues Meter::presentedValues() const
{
    MeterValues presented = _values;
    for (std::size_t phase = 0; phase < Voltages.size(); ++phase)
        presented.setQuantity(
            Voltages[phase], _values.quantity(Voltages[phase]) + _voltageOffsets[phase]);
    return presented;
}

void Meter::jitterVoltages()
{
    for (double &offset : _voltageOffsets)
        offset = (QRandomGenerator::global()->generateDouble() * 2 - 1) * VoltageJitter;
}

// Positive power is drawn from the grid, negative power fed into it.
void Meter::integrateEnergy(double seconds)
{
    const double power = _values.quantity(Quantity::Power);
    const double kilowattHours = std::abs(power) * seconds / SecondsPerHour / WattsPerKilowatt;
    const Quantity::Kind counter = power >= 0 ? Quantity::Energy : Quantity::EnergyExported;
    _values.setQuantity(counter, _values.quantity(counter) + kilowattHours);
}
