#pragma once

#include "report.h"

#include <QJsonObject>
#include <QJsonValue>

// JSON for scripts and the factory line: numbers as numbers in the service's own units and
// keys, null for a value not delivered (QJsonDocument writes NaN and infinities as null). The
// live view writes one compact document per line.
class JsonReport : public Report
{
public:
    QString meterList(const QList<MeterSnapshot> &meters) const override;
    QString meterDetails(const MeterSnapshot &meter) const override;
    QString liveFrame(const QList<MeterSnapshot> &meters, const QDateTime &time) const override;
    QString registerValue(quint16 address, quint16 registerAddress, quint16 value) const override;
    QString loopTestResult(bool passed) const override;

private:
    static QJsonObject _summary(const MeterSnapshot &meter);
    static QJsonObject _details(const MeterSnapshot &meter);
    static QJsonValue _text(const QString &text);
    static QString _document(const QJsonObject &object);
};
