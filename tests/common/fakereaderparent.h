#pragma once

#include "modbusreaderparent.h"

#include <QList>
#include <QMutex>

#include <atomic>

// Stands in for the meter a driver reads for: records what the driver reports and paces
// requests like a meter does, through the real ModbusUnit helpers.
class FakeReaderParent : public ModbusReaderParent
{
public:
    struct StaticData
    {
        QString model;
        quint32 idCode = 0;
        QString serial;
        quint32 extra = 0;
    };

    QList<StaticData> staticUpdates() const;
    QList<MeterReading> readings() const;
    QStringList errorReasons() const;
    int successCount() const { return _successes; }
    void setEnergyMeterType(EnergyMeterType type) { _type = type; }

    // ModbusUnit
    void useContext(modbus_t *) override { }
    bool isStale() const override { return false; }
    bool isFaulty() const override { return false; }
    int unitType() const override { return 0; }
    void setDisabled(bool) override { }
    bool isDisabled() const override { return false; }
    void resetStaleValues() override { }

    // ModbusReaderParent
    EnergyMeterType energyMeterType() const override { return _type; }
    quint8 modbusAddress() const override { return 0; }
    void readSucceeded() override { ++_successes; }
    void errorRoutine(const QString &reason) override;
    void updateStatic(
        const QString &model, quint32 idCode, const QString &serial, quint32 extra) override;
    void publishReading(const MeterReading &reading) override;

private:
    mutable QMutex _mutex;
    QList<StaticData> _staticUpdates;
    QList<MeterReading> _readings;
    QStringList _errorReasons;
    std::atomic<int> _successes { 0 };
    std::atomic<EnergyMeterType> _type { EnergyMeterTypes::ModbusRtu };
};
