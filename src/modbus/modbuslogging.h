#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcModbus)
Q_DECLARE_LOGGING_CATEGORY(lcModbusReader)
