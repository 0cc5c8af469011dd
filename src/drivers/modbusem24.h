#pragma once

#include "carlogavazzidriver.h"

// Three-phase Carlo Gavazzi EM24 meter, reached by the Modbus TCP meter.
class ModbusEM24 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM24(ModbusReaderParent *meter, quint8 address);

    // Model name of an EM24 identification code, "UNKNOWN" for any other code.
    static QString codeToString(int code);

    bool readStatic(modbus_t *context) override;
};
