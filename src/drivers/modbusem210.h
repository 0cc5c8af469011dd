#pragma once

#include "carlogavazzidriver.h"

// Three-phase Carlo Gavazzi EM210 meter.
class ModbusEM210 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM210(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
