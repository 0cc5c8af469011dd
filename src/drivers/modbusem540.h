#pragma once

#include "modbusregisterreader.h"

#include <vector>

struct MeterReading;

// Three-phase Carlo Gavazzi EM540. Its registers are addressed through a register-index table;
// the measurements come from one bulk block of 80 registers. Failures inside a read travel as a
// ModbusException and end at the read, which hands their text to the meter's error routine.
class ModbusEM540 : public ModbusRegisterReader
{
    Q_OBJECT

public:
    ModbusEM540(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;
    bool readValues(modbus_t *context) override;

private:
    void _readStatic(modbus_t *context);
    MeterReading _readBlock(modbus_t *context);
    std::vector<quint16> _readRegister(modbus_t *context, int key);
    void _selectSlave(modbus_t *context);
};
