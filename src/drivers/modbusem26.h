#pragma once

#include "carlogavazzidriver.h"

// Three-phase Carlo Gavazzi EM26 meter.
class ModbusEM26 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM26(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
