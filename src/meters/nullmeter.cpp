#include "nullmeter.h"

#include <limits>

NullMeter::NullMeter()
    : EnergyMeter(QStringLiteral("null"))
{
    qCWarning(logCategory()) << __func__ << "Null Meter initialized";
}

NullMeter *NullMeter::instance()
{
    // Lives as long as the process, like the other process-wide objects.
    static NullMeter *const meter = new NullMeter;
    return meter;
}

QString NullMeter::info() const
{
    return QStringLiteral("NULL:N/A");
}

double NullMeter::nan()
{
    return std::numeric_limits<double>::quiet_NaN();
}
