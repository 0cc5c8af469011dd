#pragma once

#include "settingtypes.h"

#include <QtGlobal>

class ModbusReaderParent;
class ModbusRegisterReader;

// Every meter model this build knows, as data: what an identification code names, what
// detection logs for it, which driver reads it and what it needs from the bus. Adding a model is
// a row here and a driver file.
namespace DriverCatalogue {

using Factory = ModbusRegisterReader *(*)(ModbusReaderParent *meter, quint8 address);

struct Entry
{
    quint16 code;
    // Model name shown with the serial number.
    const char *model;
    // Debug line of detection; the code follows where it ends in "Code: ". Null, like create,
    // for models reached only over TCP.
    const char *detected;
    // A second debug line of detection for models that come in variants, or null.
    const char *variant;
    // The driver detection creates; null for models reached only over TCP.
    Factory create;
    // Slow meters: when non-zero, the meter's own pause is set to 0 and the process-wide
    // minimum pause before each request raised to this many milliseconds.
    int minimumPauseMs;
};

// A model read without identification, chosen by the configured energy-meter type.
struct ConfiguredEntry
{
    EnergyMeterType type;
    const char *created; // debug line
    Factory create;
};

// The entry of an identification code; null for a code no model has.
const Entry *find(quint32 code);
// The model of a configured type that needs no identification; null for the other types.
const ConfiguredEntry *findConfigured(EnergyMeterType type);

} // namespace DriverCatalogue
