#include "driverlogging.h"

Q_LOGGING_CATEGORY(lcModbusMeter, "modbus.meter", QtDebugMsg)
// Meters reached over Modbus TCP and their device identification.
Q_LOGGING_CATEGORY(lcModbusMeterTcp, "modbus.meter.tcp", QtDebugMsg)
Q_LOGGING_CATEGORY(lcModbusDeviceInfo, "modbus.device.info", QtDebugMsg)
