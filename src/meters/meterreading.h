#pragma once

#include <QtGlobal>

#include <limits>

// One full set of measurements taken from a meter in one poll. Quantities a model does not
// measure stay NaN.
struct MeterReading
{
    static constexpr float nanF = std::numeric_limits<float>::quiet_NaN();

    float current[3] = { nanF, nanF, nanF }; // A
    float voltage[3] = { nanF, nanF, nanF }; // V, phase to neutral
    float powerFactor[3] = { nanF, nanF, nanF };
    float frequency = nanF; // Hz
    float power = nanF; // W
    double energy = std::numeric_limits<double>::quiet_NaN(); // imported, kWh
    double energyExported = std::numeric_limits<double>::quiet_NaN(); // kWh
};
