#pragma once

#include "carlogavazzidriver.h"

// Garo GM3T, which follows the three-phase Carlo Gavazzi layout; detection also gives it the
// EM21 family. The EM21 retrofit model keeps its currents with one decimal less.
class ModbusGM3T : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusGM3T(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
};
