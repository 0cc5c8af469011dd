#pragma once

#include "carlogavazzidriver.h"

// Single-phase Carlo Gavazzi EM511.
class ModbusEM511 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM511(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
