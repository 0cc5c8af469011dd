#include "driverlogging.h"

Q_LOGGING_CATEGORY(lcModbusMeter, "modbus.meter", QtDebugMsg)
