#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcModbusMeter)
Q_DECLARE_LOGGING_CATEGORY(lcModbusMeterTcp)
Q_DECLARE_LOGGING_CATEGORY(lcModbusDeviceInfo)
