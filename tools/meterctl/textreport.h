#pragma once

#include "report.h"

// Aligned tables for a person at the station.
class TextReport : public Report
{
public:
    QString meterList(const QList<MeterSnapshot> &meters) const override;
    QString meterDetails(const MeterSnapshot &meter) const override;
    QString liveFrame(const QList<MeterSnapshot> &meters, const QDateTime &time) const override;
    QString registerValue(quint16 address, quint16 registerAddress, quint16 value) const override;
    QString loopTestResult(bool passed) const override;

private:
    static QString _status(const MeterSnapshot &meter);
    static QString _identity(const MeterSnapshot &meter);
    static QString _errorRate(const MeterSnapshot &meter, const QString &unit);
    static QString _localTime(const QDateTime &time, const QString &format);
};
