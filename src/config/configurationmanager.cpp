#include "configurationmanager.h"

#include "configlogging.h"
#include "cxutil.h"
#include "firmwareenvironmentutil.h"
#include "inifile.h"
#include "pathoverride.h"

#include <QDebug>
#include <QFile>
#include <QSettings>

namespace {

// Opens an INI file when it exists; the status tells whether it could be parsed.
QSettings *openIni(const QString &path, QObject *parent, bool *ok)
{
    *ok = false;
    if (!QFile::exists(path))
        return nullptr;
    QSettings::Status status = QSettings::NoError;
    QSettings *settings = IniFile::open(path, parent, &status);
    *ok = status == QSettings::NoError;
    return settings;
}

QString iniPath(const char *variable, const QString &builtInPath, const char *caller,
    const char *builtInWarning)
{
    if (!PathOverride::isOverridden(variable))
        qCWarning(lcConfig) << caller << builtInWarning << builtInPath;
    return PathOverride::path(variable, builtInPath);
}

} // namespace

ConfigurationManager::ConfigurationManager(QObject *parent)
    : QObject(parent)
{
    const bool platformRead = _readPlatformIni();
    const bool chargemanagerRead = _readChargemanagerIni();
    _environment = FirmwareEnvironmentUtil::environmentMap();

    if (!platformRead || !chargemanagerRead) {
        qCCritical(lcConfig) << "!!! Could not read configuration, setting unit in PTS mode";
        _ptsMode = true;
    } else {
        qCDebug(lcConfig) << "Configuration read successfully";
    }
}

bool ConfigurationManager::_readPlatformIni()
{
    const QString path = iniPath("CM_PLATFORMINI", QStringLiteral("/mnt/data/etc/platform.ini"),
        __func__, "Using hard-coded platform.ini path:");
    bool ok = false;
    _platformSettings = openIni(path, this, &ok);
    return ok;
}

bool ConfigurationManager::_readChargemanagerIni()
{
    const QString path
        = iniPath("CM_CHARGEMANAGERCONFIG", QStringLiteral("/mnt/data/etc/chargemanager.ini"),
            __func__, "Using hard-coded chargemanager.ini path:");
    if (_chargemanagerSettings)
        _chargemanagerSettings->deleteLater();
    bool ok = false;
    _chargemanagerSettings = openIni(path, this, &ok);
    return ok;
}

SettingValue ConfigurationManager::value(Setting setting) const
{
    switch (setting.storageClass()) {
    case StorageClasses::Chargemanager:
    case StorageClasses::Platform: {
        const QSettings *source = setting.storageClass() == StorageClasses::Chargemanager
            ? _chargemanagerSettings
            : _platformSettings;
        if (!source)
            return setting.defaultValue();
        return source->value(setting.key(), setting.defaultValue().variant());
    }
    case StorageClasses::Environment:
        if (!_environment.contains(setting.key()))
            return setting.defaultValue();
        return SettingValue(_environment.value(setting.key()));
    case StorageClasses::Virtual:
        return _readVirtualSetting(setting);
    }
    return SettingValue();
}

SettingValue ConfigurationManager::_readVirtualSetting(Setting setting) const
{
    if (setting.storageClass() != StorageClasses::Virtual) {
        qCCritical(lcConfig) << "Incorrect usage!";
        return SettingValue();
    }
    switch (setting.index()) {
    case Settings::SupportedFeatureProfiles:
        return SettingValue(QStringLiteral("Core, FirmwareManagement, LocalAuthListManagement, "
                                           "Reservation, SmartCharging, RemoteTrigger"));
    case Settings::GetConfigurationMaxKeys:
        return SettingValue(int(Settings::Count));
    case Settings::ChargingStationModel:
        return model();
    case Settings::ChargingStationModelVersion:
        return modelVersion();
    case Settings::ChargingStationVendor:
        return vendor();
    case Settings::FirmwareVersion:
        return SettingValue(FirmwareEnvironmentUtil::firmwareVersion());
    case Settings::HeartbeatInterval:
    case Settings::ModemFirmware:
        // The heartbeat belongs to the OCPP client; this daemon deliberately has no value for it.
        qWarning() << "SettingValue ConfigurationManager::_readVirtualSetting(Setting) const"
                   << "Unimplemented code.";
        return SettingValue();
    default:
        qCCritical(lcConfig) << "Unhandled parameter!" << setting.key()
                             << setting.defaultValue().toString() << setting.index();
        return SettingValue();
    }
}

SettingValue ConfigurationManager::_environmentOrPlatform(
    const QString &environmentKey, const QString &platformKey) const
{
    if (_environment.contains(environmentKey))
        return SettingValue(_environment.value(environmentKey));
    if (!platformKey.isEmpty() && _platformSettings && _platformSettings->contains(platformKey))
        return SettingValue(_platformSettings->value(platformKey).toString());
    return SettingValue(QStringLiteral("N/A"));
}

SettingValue ConfigurationManager::vendor() const
{
    return _environmentOrPlatform(QStringLiteral("vendor"), QStringLiteral("system/vendor"));
}

SettingValue ConfigurationManager::model() const
{
    return _environmentOrPlatform(QStringLiteral("model"), QStringLiteral("system/model"));
}

SettingValue ConfigurationManager::modelVersion() const
{
    return _environmentOrPlatform(QStringLiteral("modelversion"), QString());
}

SettingValue ConfigurationManager::_outletValue(quint32 outlet, const char *suffix) const
{
    const QString key = QStringLiteral("outlet/") + QString::number(outlet) + QLatin1String(suffix);
    return value(Setting::fromKey(key));
}

SettingValue ConfigurationManager::chargeModePriority(quint32 outlet) const
{
    return _outletValue(outlet, "/charge_mode_priority");
}

SettingValue ConfigurationManager::evseId(quint32 outlet) const
{
    return _outletValue(outlet, "/evse_id");
}

SettingValue ConfigurationManager::plcModem(quint32 outlet) const
{
    return _outletValue(outlet, "/plc_modem");
}

SettingValue ConfigurationManager::plcCapable(quint32 outlet) const
{
    return _outletValue(outlet, "/plc_capable");
}

QList<RequiredModbusMeter> ConfigurationManager::requiredModbusMeters() const
{
    QList<RequiredModbusMeter> meters;
    if (!CxUtil::feedbackConfigurationActive(*this))
        return meters;
    const QList<ModbusPath> paths = CxUtil::requiredFeedbackMeters();
    for (const ModbusPath &path : paths)
        meters.append({ path, EnergyMeterTypes::ModbusRtu });
    qCDebug(lcConfig) << __func__ << meters.size() << "required feedback modbus meters";
    return meters;
}

QList<QString> ConfigurationManager::requiredTCPModbusMeters() const
{
    if (!CxUtil::feedbackConfigurationActive(*this))
        return {};
    const QList<QString> addresses = CxUtil::requiredTCPFeedbackMeters();
    if (!addresses.isEmpty())
        qCDebug(lcConfig) << __func__ << addresses.size() << "required feedback modbus TCP meters";
    return addresses;
}
