#pragma once

#include "modbusregisterreader.h"

// Siemens PAC3220, reached over Modbus TCP. Its measurements are IEEE-754 floats, most
// significant word first; the imported energy is the sum of its two energy counters.
class ModbusSiemensPAC3220 : public ModbusRegisterReader
{
    Q_OBJECT

public:
    ModbusSiemensPAC3220(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
    bool readValues(modbus_t *context) override;
};
