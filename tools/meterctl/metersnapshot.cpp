#include "metersnapshot.h"

#include "quantity.h"

#include <cmath>
#include <limits>

MeterSnapshot::MeterSnapshot(
    const QString &path, const QVariantMap &values, const QString &info, double errorRate)
    : _path(path)
    , _status(values.value(QStringLiteral("status")).toString())
    , _info(info)
    , _errorRate(errorRate)
    , _lastUpdate(_time(values.value(QStringLiteral("last_update"))))
{
    for (const Quantity &quantity : Quantity::all())
        _values.insert(
            QLatin1String(quantity.key), _number(values.value(QLatin1String(quantity.key))));
}

QString MeterSnapshot::model() const
{
    return hasIdentity() ? _info.section(QLatin1Char(':'), 0, 0) : QString();
}

QString MeterSnapshot::serial() const
{
    return hasIdentity() ? _info.section(QLatin1Char(':'), 1) : QString();
}

double MeterSnapshot::value(const char *key) const
{
    return _values.value(QLatin1String(key), std::numeric_limits<double>::quiet_NaN());
}

bool MeterSnapshot::hasIdentity() const
{
    // A meter that never answered its identification reads ":"; an unknown path "N/A".
    return _info.contains(QLatin1Char(':')) && _info != QLatin1String(":");
}

double MeterSnapshot::_number(const QVariant &variant)
{
    bool isNumber = false;
    const double number = variant.toDouble(&isNumber);
    return isNumber ? number : std::numeric_limits<double>::quiet_NaN();
}

QDateTime MeterSnapshot::_time(const QVariant &variant)
{
    bool isNumber = false;
    const qlonglong seconds = variant.toLongLong(&isNumber);
    return isNumber && seconds > 0 ? QDateTime::fromSecsSinceEpoch(seconds) : QDateTime();
}
