#include "systemmanager.h"

#include "configlogging.h"
#include "configurationmanager.h"
#include "cxutil.h"
#include "measurementmanager.h"
#include "measurementmanageradaptor.h"

#include <QDBusConnection>

namespace {

const char *const serviceName = "com.ovra.slavecontroller";
const char *const objectPath = "/MeasurementManager";
constexpr int maximumOutlets = 2;
constexpr int ocuAddressBase = 80;
const RequiredModbusMeter evseFeedbackMeter { { Channel::External, 222 },
    EnergyMeterTypes::ModbusRtu };

SystemManager *processSystemManager = nullptr;

bool acceptedOutletMeter(EnergyMeterType type)
{
    return type == EnergyMeterTypes::ModbusRtu || type == EnergyMeterTypes::IskraWM3M6;
}

Setting outletMeterSetting(int outlet)
{
    return outlet == 1 ? Setting(Settings::Outlet1Energymeter)
                       : Setting(Settings::Outlet2Energymeter);
}

} // namespace

SystemManager::SystemManager(
    const QSharedPointer<ConfigurationManager> &configuration, QObject *parent)
    : QObject(parent)
    , _configuration(configuration)
{
}

SystemManager *SystemManager::instance()
{
    return processSystemManager;
}

void SystemManager::setInstance(SystemManager *manager)
{
    processSystemManager = manager;
}

bool SystemManager::setup()
{
    qInfo() << "Using system bus";
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.registerService(QLatin1String(serviceName))) {
        qCCritical(lcConfig) << __func__ << "Failed to aquire D-Bus name" << serviceName;
        return false;
    }

    auto *measurementManager = new MeasurementManager([this] { return requiredModbusMeters(); },
        [this] { return _configuration->requiredTCPModbusMeters(); });
    new MeasurementManagerAdaptor(measurementManager);
    if (!bus.registerObject(
            QLatin1String(objectPath), measurementManager, QDBusConnection::ExportAdaptors)) {
        qCCritical(lcConfig) << __func__ << "Failed to register D-Bus object at" << objectPath;
        return false;
    }
    return true;
}

QList<RequiredModbusMeter> SystemManager::requiredModbusMeters() const
{
    QList<RequiredModbusMeter> meters;
    const int outlets = _configuration->intValue(Settings::OutletSize);
    if (outlets > maximumOutlets) {
        qCCritical(lcConfig) << __func__ << "Unsupported number of ports:" << outlets;
        return meters;
    }
    for (int outlet = 1; outlet <= outlets; ++outlet) {
        const EnergyMeterType type
            = _configuration->value(outletMeterSetting(outlet)).toEnergyMeterType();
        if (!acceptedOutletMeter(type)) {
            qCWarning(lcConfig) << __func__ << "Invalid meter type" << type << "for outlet"
                                << outlet << ", skipping...";
            continue;
        }
        meters.append({ { Channel::Internal, quint8(outlet) }, type });
    }
    if (isEvse() && CxUtil::homeMeterRequired(*_configuration))
        meters.append(evseFeedbackMeter);
    meters.append(_configuration->requiredModbusMeters());
    qCInfo(lcConfig) << __func__ << meters.size() << "total required modbus meters";
    return meters;
}

QList<ModbusPath> SystemManager::requiredModbusOcuUnits() const
{
    QList<ModbusPath> units;
    if (!isEvse()) {
        qCInfo(lcConfig) << __func__ << "No required OCU units for non-evse device";
        return units;
    }
    for (int outlet = 1; outlet <= _configuration->intValue(Settings::OutletSize); ++outlet)
        units.append({ Channel::Internal, quint8(ocuAddressBase + outlet) });
    qCInfo(lcConfig) << __func__ << units.size() << "total required ocu units";
    return units;
}

bool SystemManager::isZeReady() const
{
    return _configuration->boolValue(Settings::Zeready);
}

QObject *SystemManager::getEmbeddedStation() const
{
    // Callers written for a full station object model get a loud null here on purpose.
    qCCritical(lcConfig) << __func__
                         << "Attempted to get non-existing embedded station, returning null "
                            "pointer, expect havoc to break loose!";
    return nullptr;
}

QObject *SystemManager::getOutletController(quint8 port) const
{
    qCCritical(lcConfig) << __func__ << "Attempted to get outlet controller for non-existing port"
                         << port << ", returning null pointer, expect havoc to break loose!";
    return nullptr;
}
