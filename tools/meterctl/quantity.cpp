#include "quantity.h"

#include <array>
#include <cmath>

namespace {

// In the order a technician reads a meter's display.
constexpr std::array quantities {
    Quantity { "voltage1", "Voltage L1", "U1 [V]", "V", 1 },
    Quantity { "voltage2", "Voltage L2", "U2 [V]", "V", 1 },
    Quantity { "voltage3", "Voltage L3", "U3 [V]", "V", 1 },
    Quantity { "current1", "Current L1", "I1 [A]", "A", 3 },
    Quantity { "current2", "Current L2", "I2 [A]", "A", 3 },
    Quantity { "current3", "Current L3", "I3 [A]", "A", 3 },
    Quantity { "power", "Power", "P [W]", "W", 1 },
    Quantity { "power_factor1", "Power factor L1", nullptr, "", 3 },
    Quantity { "power_factor2", "Power factor L2", nullptr, "", 3 },
    Quantity { "power_factor3", "Power factor L3", nullptr, "", 3 },
    Quantity { "frequency", "Frequency", nullptr, "Hz", 2 },
    Quantity { "total_energy", "Energy imported", "E+ [kWh]", "kWh", 2 },
    Quantity { "total_energy_exported", "Energy exported", nullptr, "kWh", 2 },
    Quantity { "session_energy", "Session energy imported", nullptr, "kWh", 2 },
    Quantity { "session_energy_exported", "Session energy exported", nullptr, "kWh", 2 },
};

} // namespace

QString Quantity::format(double value) const
{
    return std::isnan(value) ? QStringLiteral("-") : QString::number(value, 'f', decimals);
}

QString Quantity::formatWithUnit(double value) const
{
    const QString number = format(value);
    if (std::isnan(value) || *unit == '\0')
        return number;
    return number + QLatin1Char(' ') + QLatin1String(unit);
}

std::span<const Quantity> Quantity::all()
{
    return quantities;
}
