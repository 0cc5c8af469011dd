#pragma once

#include "modbuspath.h"

#include <QString>

class EnergyMeter;

// Where meters are found by path. The Modbus manager is the registry of the running daemon.
class MeterRegistry
{
public:
    virtual ~MeterRegistry();

    virtual EnergyMeter *meterAt(const ModbusPath &path) = 0;
    virtual EnergyMeter *tcpMeterAt(const QString &address) = 0;

    static MeterRegistry *instance();

protected:
    // The registry in force is the one registered last and still alive.
    void registerInstance();
};
