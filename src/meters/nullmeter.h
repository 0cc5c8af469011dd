#pragma once

#include "energymeter.h"

// Stands for the absence of a meter: it is never read, so every value stays NaN and its status
// unknown. There is one per process.
class NullMeter : public EnergyMeter
{
public:
    static NullMeter *instance();

    QString info() const override;
    qint32 energyMeterType() const override { return -1; }
    quint32 staticExtra() const override { return 0; }
    void startSession() override { }
    double current(int) const override { return nan(); }
    double voltage(int) const override { return nan(); }
    double totalEnergy() const override { return nan(); }
    double totalEnergyExported() const override { return nan(); }
    double power() const override { return nan(); }
    double getErrorRate() const override { return nan(); }
    double frequency() const override { return nan(); }
    double powerFactor(int) const override { return nan(); }
    double sessionEnergy() const override { return nan(); }
    double sessionEnergyExported() const override { return nan(); }

private:
    NullMeter();

    static double nan();
};
