#pragma once

#include "carlogavazzidriver.h"

// Three-phase Carlo Gavazzi EM300 series meter (EM330, ET330, EM340, ET340, EM341).
class ModbusEM340 : public CarloGavazziDriver
{
    Q_OBJECT

public:
    ModbusEM340(ModbusReaderParent *meter, quint8 address);

    bool readStatic(modbus_t *context) override;

protected:
    double finishValue(Quantity quantity, double value) const override;

private:
    bool _readYear(modbus_t *context, quint16 &year);
};
