#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QVariantMap>

#include <atomic>

class ClockTimer;

enum EnergyMeterStatus : qint32 { OK = 0, ERROR_CONNECTION = 1, ERROR_UNKNOWN = -1 };

// The value model every meter presents, whatever its transport: status, time of the last
// reading, a staleness timer and the measurement queries the D-Bus service answers from.
// Values not read (yet) are NaN. Lives in the thread that constructed it.
class EnergyMeter
{
public:
    explicit EnergyMeter(const QString &name);
    virtual ~EnergyMeter();
    EnergyMeter(const EnergyMeter &) = delete;
    EnergyMeter &operator=(const EnergyMeter &) = delete;

    virtual QString info() const = 0;
    virtual qint32 energyMeterType() const = 0;
    virtual quint32 staticExtra() const = 0;
    virtual void startSession() = 0;
    virtual double current(int phase) const = 0;
    virtual double voltage(int phase) const = 0;
    virtual double totalEnergy() const = 0;
    virtual double totalEnergyExported() const = 0;
    virtual double power() const = 0;
    virtual double getErrorRate() const = 0;
    virtual double frequency() const = 0;
    virtual double powerFactor(int phase) const = 0;
    virtual double sessionEnergy() const = 0;
    virtual double sessionEnergyExported() const = 0;

    EnergyMeterStatus status() const { return _status; }
    quint32 lastUpdate() const { return _lastUpdate; }
    double maxCurrent() const;
    QVariantMap metervalues() const;

    static QString statusToString(EnergyMeterStatus status);
    static QString statusText(EnergyMeterStatus status);
    static EnergyMeter *getMeterForPath(const QString &path);

protected:
    const QLoggingCategory &logCategory() const { return _category; }
    void _updateStatus(EnergyMeterStatus status);
    void _readingReceived();

private:
    char _categoryName[64];
    QLoggingCategory _category;
    std::atomic<quint32> _lastUpdate;
    std::atomic<EnergyMeterStatus> _status { ERROR_UNKNOWN };
    ClockTimer *_staleTimer;
};
