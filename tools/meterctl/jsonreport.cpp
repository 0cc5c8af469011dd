#include "jsonreport.h"

#include "quantity.h"

#include <QJsonArray>
#include <QJsonDocument>

QString JsonReport::meterList(const QList<MeterSnapshot> &meters) const
{
    QJsonArray list;
    for (const MeterSnapshot &meter : meters)
        list.append(_summary(meter));
    return _document({ { QStringLiteral("meters"), list } });
}

QString JsonReport::meterDetails(const MeterSnapshot &meter) const
{
    return _document(_details(meter));
}

QString JsonReport::liveFrame(const QList<MeterSnapshot> &meters, const QDateTime &time) const
{
    QJsonArray list;
    for (const MeterSnapshot &meter : meters)
        list.append(_details(meter));
    const QJsonObject frame { { QStringLiteral("time"), time.toUTC().toString(Qt::ISODate) },
        { QStringLiteral("meters"), list } };
    return QString::fromUtf8(QJsonDocument(frame).toJson(QJsonDocument::Compact))
        + QLatin1Char('\n');
}

QString JsonReport::registerValue(quint16 address, quint16 registerAddress, quint16 value) const
{
    return _document({ { QStringLiteral("address"), address },
        { QStringLiteral("register"), registerAddress }, { QStringLiteral("value"), value } });
}

QString JsonReport::loopTestResult(bool passed) const
{
    return _document({ { QStringLiteral("passed"), passed } });
}

QJsonObject JsonReport::_summary(const MeterSnapshot &meter)
{
    return { { QStringLiteral("path"), meter.path() },
        { QStringLiteral("status"), _text(meter.status()) },
        { QStringLiteral("info"), meter.info() }, { QStringLiteral("model"), _text(meter.model()) },
        { QStringLiteral("serial"), _text(meter.serial()) },
        { QStringLiteral("error_rate"), meter.errorRate() } };
}

QJsonObject JsonReport::_details(const MeterSnapshot &meter)
{
    QJsonObject object = _summary(meter);
    const QDateTime lastUpdate = meter.lastUpdate();
    object.insert(QStringLiteral("last_update"),
        lastUpdate.isValid() ? QJsonValue(lastUpdate.toSecsSinceEpoch()) : QJsonValue());
    for (const Quantity &quantity : Quantity::all())
        object.insert(QLatin1String(quantity.key), meter.value(quantity.key));
    return object;
}

QJsonValue JsonReport::_text(const QString &text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QString JsonReport::_document(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
}
