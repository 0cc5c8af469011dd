#include "textreport.h"

#include "quantity.h"
#include "texttable.h"

#include <cmath>

namespace {

const QString dateAndTime = QStringLiteral("yyyy-MM-dd HH:mm:ss");
const QString timeOfDay = QStringLiteral("HH:mm:ss");

} // namespace

QString TextReport::meterList(const QList<MeterSnapshot> &meters) const
{
    TextTable table;
    table.setHeader({ QStringLiteral("PATH"), QStringLiteral("STATUS"),
        QStringLiteral("MODEL:SERIAL"), QStringLiteral("ERRORS [%]") });
    for (const MeterSnapshot &meter : meters)
        table.addRow(
            { meter.path(), _status(meter), _identity(meter), _errorRate(meter, QString()) });
    return table.render();
}

QString TextReport::meterDetails(const MeterSnapshot &meter) const
{
    TextTable table;
    table.addRow({ QStringLiteral("Path"), meter.path() });
    table.addRow({ QStringLiteral("Status"), _status(meter) });
    table.addRow({ QStringLiteral("Model:Serial"), _identity(meter) });
    table.addRow({ QStringLiteral("Error rate"), _errorRate(meter, QStringLiteral(" %")) });
    table.addRow({ QStringLiteral("Last update"), _localTime(meter.lastUpdate(), dateAndTime) });
    for (const Quantity &quantity : Quantity::all())
        table.addRow(
            { QLatin1String(quantity.label), quantity.formatWithUnit(meter.value(quantity.key)) });
    return table.render();
}

QString TextReport::liveFrame(const QList<MeterSnapshot> &meters, const QDateTime &time) const
{
    QStringList header { QStringLiteral("PATH"), QStringLiteral("STATUS") };
    for (const Quantity &quantity : Quantity::all()) {
        if (quantity.liveTitle)
            header.append(QLatin1String(quantity.liveTitle));
    }
    header.append(QStringLiteral("UPDATED"));

    TextTable table;
    table.setHeader(header);
    for (const MeterSnapshot &meter : meters) {
        QStringList row { meter.path(), _status(meter) };
        for (const Quantity &quantity : Quantity::all()) {
            if (quantity.liveTitle)
                row.append(quantity.format(meter.value(quantity.key)));
        }
        row.append(_localTime(meter.lastUpdate(), timeOfDay));
        table.addRow(row);
    }
    return _localTime(time, dateAndTime) + QLatin1Char('\n') + table.render();
}

QString TextReport::registerValue(quint16, quint16, quint16 value) const
{
    return QString::number(value) + QLatin1Char('\n');
}

QString TextReport::loopTestResult(bool passed) const
{
    return passed ? QStringLiteral("RS-485 loop test passed\n")
                  : QStringLiteral("RS-485 loop test failed\n");
}

QString TextReport::_status(const MeterSnapshot &meter)
{
    return meter.status().isEmpty() ? QStringLiteral("-") : meter.status();
}

QString TextReport::_identity(const MeterSnapshot &meter)
{
    return meter.hasIdentity() ? meter.info() : QStringLiteral("-");
}

QString TextReport::_errorRate(const MeterSnapshot &meter, const QString &unit)
{
    return std::isnan(meter.errorRate()) ? QStringLiteral("-")
                                         : QString::number(meter.errorRate(), 'f', 2) + unit;
}

QString TextReport::_localTime(const QDateTime &time, const QString &format)
{
    return time.isValid() ? time.toLocalTime().toString(format) : QStringLiteral("-");
}
