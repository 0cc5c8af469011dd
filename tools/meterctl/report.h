#pragma once

#include "metersnapshot.h"

#include <QDateTime>
#include <QList>
#include <QString>

// How the answer of a read command is put on standard output: for people or for scripts. Every
// text ends with a newline.
class Report
{
public:
    virtual ~Report() = default;

    virtual QString meterList(const QList<MeterSnapshot> &meters) const = 0;
    virtual QString meterDetails(const MeterSnapshot &meter) const = 0;
    virtual QString liveFrame(const QList<MeterSnapshot> &meters, const QDateTime &time) const = 0;
    virtual QString registerValue(
        quint16 address, quint16 registerAddress, quint16 value) const = 0;
    virtual QString loopTestResult(bool passed) const = 0;
};
