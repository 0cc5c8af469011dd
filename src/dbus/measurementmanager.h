#pragma once

#include "requiredmodbusmeter.h"

#include <QDBusContext>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <optional>

class EnergyMeter;

// What the station's other services read meters through, at /MeasurementManager. Every method
// answers: a bad path, a missing meter or a failed transfer gives a neutral value and a log
// line, never a D-Bus error.
//
// A register access can wait seconds for the channel, so it does not hold the thread that serves
// the bus: the call is marked for a delayed reply, which is sent when the transfer is done (Qt
// hands the call's context to the adaptor's parent, this object). What the two register methods
// return is not sent.
class MeasurementManager : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    // The lists are asked for on first use and kept for the life of the process.
    using RequiredMetersSource = std::function<QList<RequiredModbusMeter>()>;
    using TcpMetersSource = std::function<QList<QString>()>;

    MeasurementManager(
        RequiredMetersSource requiredMeters, TcpMetersSource tcpMeters, QObject *parent = nullptr);

public slots:
    double current(const QString &path, int phase);
    double voltage(const QString &path, int phase);
    double totalEnergy(const QString &path);
    double power(const QString &path);
    double getErrorRate(const QString &path);
    QString info(const QString &path);
    bool meterExists(const QString &path);
    QStringList meterList();
    bool setModbusRegister(quint16 deviceAddress, quint16 registerAddress, quint16 value);
    quint16 readModbusRegister(quint16 address, quint16 registerAddress);
    QVariantMap metervalues(const QString &path);
    void setDisabled(const QString &path, bool state);

private:
    QStringList _configuredPaths(std::optional<QStringList> &cache, QLatin1StringView tcpTemplate);

    RequiredMetersSource _requiredMeters;
    TcpMetersSource _tcpMeters;
    std::optional<QStringList> _existsPaths;
    std::optional<QStringList> _listPaths;
};
