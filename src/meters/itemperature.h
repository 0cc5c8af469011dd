#pragma once

// Anything that can tell a temperature: a probe, or an estimate made from other probes.
class ITemperature
{
public:
    virtual ~ITemperature() = default;

    // Degrees Celsius; NaN when unknown.
    virtual double temperature() const = 0;
};
