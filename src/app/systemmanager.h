#pragma once

#include "requiredmodbusmeter.h"

#include <QList>
#include <QObject>
#include <QSharedPointer>

class ConfigurationManager;

// The top-level object of normal mode: puts the measurement service on the system bus and
// answers which Modbus meters and OCU units configuration requires.
class SystemManager : public QObject
{
    Q_OBJECT

public:
    SystemManager(
        const QSharedPointer<ConfigurationManager> &configuration, QObject *parent = nullptr);

    static SystemManager *instance();
    static void setInstance(SystemManager *manager);

    bool setup();
    ConfigurationManager *configuration() const { return _configuration.data(); }

    QList<RequiredModbusMeter> requiredModbusMeters() const;
    QList<ModbusPath> requiredModbusOcuUnits() const;

    // This daemon is never the EVSE controller itself.
    bool isEvse() const { return false; }
    bool isZeReady() const;

    QObject *getEmbeddedStation() const;
    QObject *getOutletController(quint8 port) const;

private:
    QSharedPointer<ConfigurationManager> _configuration;
};
