#pragma once

#include "carlogavazzidriver.h"

// Single-phase Carlo Gavazzi EM/ET110 series meter.
class ModbusEM111 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM111(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
