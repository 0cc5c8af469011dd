#pragma once

#include "energymeter.h"
#include "modbusunit.h"

#include <atomic>

// A unit that selects its slave address on the context like a meter does, and whose health the
// test sets. It is also an energy meter (with no values) so that lookups can hand it out.
class FakeUnit : public ModbusUnit, public EnergyMeter
{
public:
    explicit FakeUnit(int address);

    void useContext(modbus_t *context) override;
    bool isStale() const override { return stale; }
    bool isFaulty() const override { return faulty; }
    int unitType() const override { return type; }
    void setDisabled(bool value) override { disabled = value; }
    bool isDisabled() const override { return disabled; }
    void resetStaleValues() override { ++staleResets; }

    QString info() const override { return QStringLiteral("FAKE:1"); }
    qint32 energyMeterType() const override { return 2; }
    quint32 staticExtra() const override { return 0; }
    void startSession() override { }
    double current(int) const override { return 0; }
    double voltage(int) const override { return 0; }
    double totalEnergy() const override { return 0; }
    double totalEnergyExported() const override { return 0; }
    double power() const override { return 0; }
    double getErrorRate() const override { return 0; }
    double frequency() const override { return 0; }
    double powerFactor(int) const override { return 0; }
    double sessionEnergy() const override { return 0; }
    double sessionEnergyExported() const override { return 0; }

    const int address;
    std::atomic<bool> stale { false };
    std::atomic<bool> faulty { false };
    std::atomic<bool> disabled { false };
    std::atomic<int> type { 0 };
    std::atomic<int> blockMs { 0 };
    std::atomic<int> uses { 0 };
    std::atomic<int> staleResets { 0 };
    std::atomic<bool> contextWasNull { false };
};
