#include "modbuslogging.h"

Q_LOGGING_CATEGORY(lcModbus, "modbus", QtDebugMsg)
Q_LOGGING_CATEGORY(lcModbusReader, "modbus.reader", QtDebugMsg)
