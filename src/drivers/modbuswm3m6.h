#pragma once

#include "modbusregisterreader.h"

// ISKRA WM3M6. It has no identification code: an outlet meter configured as this type is read
// with this driver without asking. All its values are input registers (function 0x04).
class ModbusWM3M6 : public ModbusRegisterReader
{
    Q_OBJECT

public:
    ModbusWM3M6(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
    bool readValues(modbus_t *context) override;

private:
    bool _read(modbus_t *context, int address, int count, quint16 *words, const char *function,
        const char *failure) const;
};
