#pragma once

#include "carlogavazzidriver.h"

// Three-phase Carlo Gavazzi EM24 meter, reached by the Modbus TCP meter.
class ModbusEM24 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM24(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
