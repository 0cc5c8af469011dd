#pragma once

#include "meterreading.h"
#include "modbusunit.h"
#include "settingtypes.h"

#include <QString>

// The meter a register reader reads for: it paces the reader's requests (as a ModbusUnit) and
// takes its results, failures and static data.
class ModbusReaderParent : public ModbusUnit
{
public:
    virtual EnergyMeterType energyMeterType() const = 0;
    virtual quint8 modbusAddress() const = 0;
    virtual void readSucceeded() = 0;
    virtual void errorRoutine(const QString &reason) = 0;
    virtual void updateStatic(
        const QString &model, quint32 idCode, const QString &serial, quint32 extra)
        = 0;
    // Called in the reader's thread; the meter stores it in its own thread.
    virtual void publishReading(const MeterReading &reading) = 0;
};
