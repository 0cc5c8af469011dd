#pragma once

#include "energymeter.h"

#include <limits>

// A meter whose phase currents a test sets; every other value is NaN. reading() marks a reading
// as received, as a real meter does when its values arrive.
class FakeEnergyMeter : public EnergyMeter
{
public:
    static constexpr double nanValue = std::numeric_limits<double>::quiet_NaN();

    using EnergyMeter::EnergyMeter;

    QString info() const override { return QStringLiteral("TEST:1"); }
    qint32 energyMeterType() const override { return 2; }
    quint32 staticExtra() const override { return 0; }
    void startSession() override { }
    double current(int phase) const override { return currents[phase - 1]; }
    double voltage(int) const override { return nanValue; }
    double totalEnergy() const override { return nanValue; }
    double totalEnergyExported() const override { return nanValue; }
    double power() const override { return nanValue; }
    double getErrorRate() const override { return nanValue; }
    double frequency() const override { return nanValue; }
    double powerFactor(int) const override { return nanValue; }
    double sessionEnergy() const override { return nanValue; }
    double sessionEnergyExported() const override { return nanValue; }

    void reading() { _readingReceived(); }
    QString categoryName() const { return QString::fromLatin1(logCategory().categoryName()); }

    double currents[3] = { nanValue, nanValue, nanValue };
};
