#include "measurementmanager.h"

#include "energymeter.h"
#include "modbusmanager.h"
#include "modbusunit.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QLoggingCategory>

#include <limits>

Q_LOGGING_CATEGORY(lcMeasurementManager, "measurement.manager", QtDebugMsg)

namespace {

// Takes over the reply to the call being served: it is sent with the result handed to the
// returned function, from whichever thread finishes the work. The function holds the bus
// connection and the call, nothing of this object. Not called from D-Bus: nobody to answer.
template <typename Result> std::function<void(Result)> replyLater(const QDBusContext &context)
{
    if (!context.calledFromDBus())
        return [](Result) {};
    context.setDelayedReply(true);
    return [bus = context.connection(), call = context.message()](
               Result result) { bus.send(call.createReply(QVariant::fromValue(result))); };
}

} // namespace

MeasurementManager::MeasurementManager(
    RequiredMetersSource requiredMeters, TcpMetersSource tcpMeters, QObject *parent)
    : QObject(parent)
    , _requiredMeters(std::move(requiredMeters))
    , _tcpMeters(std::move(tcpMeters))
{
}

double MeasurementManager::current(const QString &path, int phase)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    if (!meter) {
        qCCritical(lcMeasurementManager) << __func__ << "Incorrect path:" << path;
        return 0.0;
    }
    return meter->current(phase);
}

double MeasurementManager::voltage(const QString &path, int phase)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    return meter ? meter->voltage(phase) : 0.0;
}

double MeasurementManager::totalEnergy(const QString &path)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    return meter ? meter->totalEnergy() : 0.0;
}

double MeasurementManager::power(const QString &path)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    return meter ? meter->power() : 0.0;
}

double MeasurementManager::getErrorRate(const QString &path)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    return meter ? meter->getErrorRate() : std::numeric_limits<double>::quiet_NaN();
}

QString MeasurementManager::info(const QString &path)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    return meter ? meter->info() : QStringLiteral("N/A");
}

QVariantMap MeasurementManager::metervalues(const QString &path)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    if (!meter) {
        qCCritical(lcMeasurementManager) << __func__ << "Failed to find meter at path:" << path;
        return {};
    }
    return meter->metervalues();
}

QStringList MeasurementManager::_configuredPaths(
    std::optional<QStringList> &cache, QLatin1StringView tcpTemplate)
{
    if (!cache) {
        QStringList paths;
        for (const RequiredModbusMeter &meter : _requiredMeters())
            paths.append(meter.path.toString());
        for (const QString &address : _tcpMeters())
            paths.append(QString(tcpTemplate).arg(address));
        cache = paths;
    }
    return *cache;
}

// A TCP meter is listed by its bare address here, which never resolves as a path, while its path
// matches no entry: the answer for a TCP meter is false under either spelling. meterList names
// TCP meters by their paths.
bool MeasurementManager::meterExists(const QString &path)
{
    return _configuredPaths(_existsPaths, QLatin1StringView("%1")).contains(path)
        && EnergyMeter::getMeterForPath(path);
}

QStringList MeasurementManager::meterList()
{
    return _configuredPaths(_listPaths, QLatin1StringView("modbus/%1"));
}

bool MeasurementManager::setModbusRegister(
    quint16 deviceAddress, quint16 registerAddress, quint16 value)
{
    ModbusManager *manager = ModbusManager::instance();
    if (!manager)
        return false;
    manager->writeRegister(
        Channel::External, deviceAddress, registerAddress, value, replyLater<bool>(*this));
    return false;
}

quint16 MeasurementManager::readModbusRegister(quint16 address, quint16 registerAddress)
{
    ModbusManager *manager = ModbusManager::instance();
    if (!manager)
        return 0;
    manager->readRegister(Channel::External, address, registerAddress, replyLater<quint16>(*this));
    return 0;
}

void MeasurementManager::setDisabled(const QString &path, bool state)
{
    EnergyMeter *meter = EnergyMeter::getMeterForPath(path);
    if (!meter) {
        qCCritical(lcMeasurementManager) << __func__ << "Incorrect path:" << path;
        return;
    }
    const qint32 type = meter->energyMeterType();
    if (type != EnergyMeterTypes::ModbusRtu && type != EnergyMeterTypes::IskraWM3M6)
        return;
    if (auto *unit = dynamic_cast<ModbusUnit *>(meter))
        unit->setDisabled(state);
}
