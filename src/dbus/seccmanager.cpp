#include "seccmanager.h"

#include "seccsetupinterface.h"
#include "secctypes.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QLoggingCategory>

// The SECC category of the station's outlet services.
Q_LOGGING_CATEGORY(lcSeccManager, "outlet.secc", QtDebugMsg)

SeccManager::SeccManager(const QString &evseId, int nominalVoltage, int maxSupportedCurrent,
    int nominalFrequency, int minSupportedCurrent, int evseNumber, QObject *parent)
    : QObject(parent)
    , _path(QStringLiteral("/com/ovra/secc"))
{
    SeccTypes::registerTypes();
    const QString service = QStringLiteral("com.ovra.secc.ev%1").arg(evseNumber);
    QDBusConnection bus = QDBusConnection::systemBus();
    // Inserted in the order of the table the SECC documents; a{sv} carries them sorted by key.
    _properties.insert(QStringLiteral("EVSE ID"), evseId);
    _properties.insert(QStringLiteral("EVSE NOMINAL VOLTAGE"), nominalVoltage);
    _properties.insert(QStringLiteral("EVSE MAX SUPPORTED CURRENT"), maxSupportedCurrent);
    _properties.insert(QStringLiteral("EVSE NOMINAL FREQUENCY"), nominalFrequency);
    _properties.insert(QStringLiteral("EVSE MIN SUPPORTED CURRENT"), minSupportedCurrent);
    // The outlets do not discharge vehicles.
    _properties.insert(QStringLiteral("EVSE MAX SUPPORTED DISCHARGE CURRENT"), 0);
    _properties.insert(QStringLiteral("EVSE MIN SUPPORTED DISCHARGE CURRENT"), 0);

    _watcher.setConnection(bus);
    _watcher.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
    _watcher.addWatchedService(service);
    connect(&_watcher, &QDBusServiceWatcher::serviceRegistered, this,
        &SeccManager::onServiceRegistered);
    _setup = QSharedPointer<ComOvraSeccSetupInterface>::create(service, _path, bus);

    // Registrations from before the watcher existed are not reported by it.
    if (bus.interface() && bus.interface()->isServiceRegistered(service)) {
        qCDebug(lcSeccManager) << __func__ << "SECC service is already registered, sending signal";
        onServiceRegistered();
    }
    qCInfo(lcSeccManager) << "Secc"
                          << " manager is running";
}

SeccManager::~SeccManager() = default;

void SeccManager::onServiceRegistered()
{
    // Fire and forget: the SECC answers nothing the outlet needs.
    _setup->SetProperties(_properties);
    _setup->SetSupportedEnergyTransferModes(
        { SeccTypes::AC_Single_Phase, SeccTypes::AC_Three_Phase });
    qCInfo(lcSeccManager) << __func__ << "OutletManager has provided properties to Secc";
}
