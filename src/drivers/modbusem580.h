#pragma once

#include "carlogavazzidriver.h"

// Three-phase Carlo Gavazzi EM580 with signed metering; here only its identity and measurements.
class ModbusEM580 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM580(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
