#pragma once

#include "modbuspath.h"
#include "settingtypes.h"

// A meter that configuration says must answer at a path, and the type expected there.
struct RequiredModbusMeter
{
    ModbusPath path;
    EnergyMeterType type = EnergyMeterTypes::NoMeter;

    friend bool operator==(const RequiredModbusMeter &a, const RequiredModbusMeter &b)
    {
        return a.path == b.path && a.type == b.type;
    }
};
