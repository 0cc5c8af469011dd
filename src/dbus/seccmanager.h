#pragma once

#include <QDBusServiceWatcher>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVariantMap>

class ComOvraSeccSetupInterface;

// Tells an outlet's SECC service (com.ovra.secc.evN on the system bus) the outlet's EVSE
// properties and supported energy transfer modes, each time the service registers, and at once
// when it is already there.
class SeccManager : public QObject
{
    Q_OBJECT

public:
    // Voltage in volts, currents in amperes, frequency in hertz.
    SeccManager(const QString &evseId, int nominalVoltage, int maxSupportedCurrent,
        int nominalFrequency, int minSupportedCurrent, int evseNumber, QObject *parent = nullptr);
    ~SeccManager() override;

public slots:
    void onServiceRegistered();

private:
    const QString _path;
    QSharedPointer<ComOvraSeccSetupInterface> _setup;
    QDBusServiceWatcher _watcher;
    QVariantMap _properties;
};
