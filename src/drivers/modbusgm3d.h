#pragma once

#include "carlogavazzidriver.h"

// Garo GM3D, which follows a Carlo Gavazzi layout; detection also gives it the EM33 DIN code.
class ModbusGM3D : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusGM3D(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
