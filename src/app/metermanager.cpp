#include "metermanager.h"

#include "clocktimer.h"
#include "configurationmanager.h"
#include "modbusmanager.h"
#include "modbusmeter.h"
#include "modbustcpmeter.h"
#include "systemmanager.h"

#include <QDebug>
#include <QtGlobal>

#include <systemd/sd-daemon.h>

namespace {

// The unit's WatchdogSec must be longer than this.
constexpr int watchdogIntervalMs = 45000;

const char *const platformOption = "--platform=";

ModbusUnitFactory meterFactory(const ConfigurationManager &configuration)
{
    ModbusUnitFactory factory;
    factory.rtuMeter = [](const RequiredModbusMeter &meter) -> ModbusUnit * {
        return new ModbusMeter(meter.path.address, meter.type);
    };
    const bool modbusDebug = configuration.boolValue(Settings::ModbusDebug);
    factory.tcpMeter = [modbusDebug](const QString &address, quint16 port) -> EnergyMeter * {
        return new ModbusTCPMeter(address, port, modbusDebug);
    };
    return factory;
}

} // namespace

MeterManager::MeterManager(QObject *parent)
    : QObject(parent)
    , _watchdogTimer(new ClockTimer(this))
{
    _watchdogTimer->setInterval(watchdogIntervalMs);
    _watchdogTimer->setSingleShot(true);
    connect(_watchdogTimer, &ClockTimer::timeout, this, &MeterManager::_notifyWatchdog);
}

MeterManager::~MeterManager()
{
    _watchdogTimer->deleteLater();
}

int MeterManager::start(
    const QStringList &arguments, const QSharedPointer<ConfigurationManager> &configuration)
{
    applyPlatformOptions(arguments);
    qInfo() << "MeterManager, Version " << METERD_VERSION;
    qInfo() << "Built with Qt"
            << "6.5.1"
            << "running on" << qVersion();

    auto *systemManager = new SystemManager(configuration, this);
    SystemManager::setInstance(systemManager);
    if (!systemManager->setup()) {
        qCritical() << "Failed to set up system manager, aborting!";
        return SystemManagerFailed;
    }

    // Built now: after the measurement service exists and before readiness is reported.
    const RequiredMeterSources required {
        [configuration] { return configuration->requiredTCPModbusMeters(); },
        [systemManager] { return systemManager->requiredModbusMeters(); },
    };
    new ModbusManager(*configuration, required, meterFactory(*configuration));

    startWatchdog();
    return Started;
}

void MeterManager::applyPlatformOptions(const QStringList &arguments)
{
    // platform.ini has been read already; the option only tells later readers of the variable.
    for (const QString &argument : arguments) {
        if (argument.startsWith(QLatin1String(platformOption)))
            qputenv("CM_PLATFORMINI", argument.mid(int(strlen(platformOption))).toLatin1());
    }
}

void MeterManager::startWatchdog()
{
    _watchdogTimer->start();
}

void MeterManager::_notifyWatchdog()
{
    sd_notifyf(0, "WATCHDOG=1\n");
    _watchdogTimer->start();
}
