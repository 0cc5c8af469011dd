#include "setting.h"

#include "settingvalue.h"

#include <QUuid>

namespace {

enum class DefaultKind { Integer, Text, FreshUuid };

struct Row
{
    const char *key;
    StorageClass storageClass;
    DefaultKind defaultKind;
    int integerDefault;
    const char *textDefault;
};

using namespace StorageClasses;

constexpr Row rows[Settings::Count] = {
    { "ocpp/AllowOfflineTxForUnknownId", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "ocpp/AuthorizationCacheEnabled", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "ocpp/AuthorizeRemoteTxRequests", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "ocpp/AuthCacheLifeTime", Chargemanager, DefaultKind::Integer, 2592000, nullptr },
    { "ocpp/LocalAuthListEnabled", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "ocpp/ChargeProfileMaxStackLevel", Virtual, DefaultKind::Integer, 20, nullptr },
    { "ChargingScheduleAllowedChargingRateUnit", Virtual, DefaultKind::Text, 0, "Current" },
    { "ocpp/ChargingScheduleMaxPeriods", Virtual, DefaultKind::Integer, 100, nullptr },
    { "ocpp/ClockAlignedDataInterval", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "ConnectionTimeOut", Chargemanager, DefaultKind::Integer, 180, nullptr },
    { "ocpp/ConnectorPhaseRotation", Virtual, DefaultKind::Text, 0, "" },
    { "HeartbeatInterval", Virtual, DefaultKind::Integer, 240, nullptr },
    { "GetConfigurationMaxKeys", Virtual, DefaultKind::Text, 0, "number of parameters" },
    { "ocpp/LightIntensity", Chargemanager, DefaultKind::Integer, 100, nullptr },
    { "ocpp/LocalAuthListMaxLength", Virtual, DefaultKind::Integer, 10000, nullptr },
    { "ocpp/LocalAuthorizeOffline", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "ocpp/LocalPreAuthorize", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "ocpp/MaxChargingProfilesInstalled", Virtual, DefaultKind::Integer, 80, nullptr },
    { "ocpp/MeterValuesAlignedData", Chargemanager, DefaultKind::Text, 0,
        "Energy.Active.Import.Register" },
    { "ocpp/MeterValuesSampledData", Chargemanager, DefaultKind::Text, 0,
        "Energy.Active.Import.Register" },
    { "ocpp/MeterValueSampleInterval", Chargemanager, DefaultKind::Integer, 240, nullptr },
    { "ocpp/MinimumStatusDuration", Chargemanager, DefaultKind::Integer, 2, nullptr },
    { "outlet/size", Platform, DefaultKind::Integer, 2, nullptr },
    { "ocpp/ReserveConnectorZeroSupported", Virtual, DefaultKind::Integer, 0, nullptr },
    { "ocpp/ResetRetries", Virtual, DefaultKind::Integer, 0, nullptr },
    { "ocpp/SendLocalListMaxLength", Virtual, DefaultKind::Integer, 500, nullptr },
    { "ocpp/StopTransactionOnEVSideDisconnect", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "StopTransactionOnInvalidId", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "ocpp/StopTxAlignedData", Virtual, DefaultKind::Text, 0, "" },
    { "ocpp/StopTxAlignedDataMaxLength", Virtual, DefaultKind::Integer, 0, nullptr },
    { "ocpp/StopTxSampledData", Virtual, DefaultKind::Text, 0, "" },
    { "ocpp/StopTxSampledDataMaxLength", Virtual, DefaultKind::Integer, 0, nullptr },
    { "SupportedFeatureProfiles", Virtual, DefaultKind::Text, 0,
        "Core, FirmwareManagement, LocalAuthListManagement, Reservation, SmartCharging, "
        "RemoteTrigger" },
    { "SupportedFileTransferProtocols", Virtual, DefaultKind::Text, 0, "FTP, FTPS, SFTP" },
    { "ocpp/TransactionMessageAttempts", Chargemanager, DefaultKind::Integer, 9999, nullptr },
    { "ocpp/TransactionMessageRetryInterval", Chargemanager, DefaultKind::Integer, 300, nullptr },
    { "ocpp/UnlockConnectorOnEVSideDisconnect", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "ocpp/WebSocketPingInterval", Chargemanager, DefaultKind::Integer, 30, nullptr },
    { "AllowOfflineTxWithoutId", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "chargeboxidentity", Chargemanager, DefaultKind::FreshUuid, 0, nullptr },
    { "endpoint", Chargemanager, DefaultKind::Text, 0, "wss://backoffice.ovra.com/ocpp16" },
    { "CustomizationCtrlEnabled", Chargemanager, DefaultKind::Text, 0, "" },
    { "CustomizationCtrlSupported", Virtual, DefaultKind::Text, 0,
        "com.ovra.ExtendedAuthorization, com.ovra.LicenseHandling, com.ovra.FileOperations" },
    { "fuse", Chargemanager, DefaultKind::Integer, 16, nullptr },
    { "PhaseRotation", Chargemanager, DefaultKind::Text, 0, "RST" },
    { "localcontroller", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "IsLocalController", Virtual, DefaultKind::Integer, 0, nullptr },
    { "localproxy", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "modemtemperature", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "cxcidentity", Chargemanager, DefaultKind::Text, 0, "" },
    { "cxhome/meter_serialno", Virtual, DefaultKind::Text, 0, "N/A" },
    { "cxhome/meter_totalenergy", Virtual, DefaultKind::Text, 0, "N/A" },
    { "CXHomeMeterType", Chargemanager, DefaultKind::Text, 0, "modbus" },
    { "ocpp/NtpServerUri", Chargemanager, DefaultKind::Text, 0, "pool.ntp.ovra.com" },
    { "onlinetimeout", Chargemanager, DefaultKind::Integer, 1440, nullptr },
    { "availability", Chargemanager, DefaultKind::Text, 0,
        "0.Operative, 1.Operative, 2.Operative" },
    { "outlet/1/authmode", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/connections", Chargemanager, DefaultKind::Text, 0, "" },
    { "outlet/1/opentag", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/fallback_current", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/fallback_output", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "outlet/1/session_energy_limit", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/meter_serialno", Virtual, DefaultKind::Text, 0, "N/A" },
    { "outlet/1/meter_totalenergy", Virtual, DefaultKind::Text, 0, "N/A" },
    { "outlet/1/allow_charging_on_lock_error", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "outlet/1/keep_cable_locked", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/authmode", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/connections", Chargemanager, DefaultKind::Text, 0, "" },
    { "outlet/2/opentag", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/fallback_current", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/fallback_output", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "outlet/2/session_energy_limit", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/meter_serialno", Virtual, DefaultKind::Text, 0, "N/A" },
    { "outlet/2/meter_totalenergy", Virtual, DefaultKind::Text, 0, "N/A" },
    { "outlet/2/allow_charging_on_lock_error", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "outlet/2/keep_cable_locked", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "pingreboot/retries", Chargemanager, DefaultKind::Integer, 3, nullptr },
    { "pingreboot/server", Chargemanager, DefaultKind::Text, 0, "8.8.8.8" },
    { "pingreboot/timeout", Chargemanager, DefaultKind::Integer, 15, nullptr },
    { "progtags", Chargemanager, DefaultKind::Text, 0, "" },
    { "protocol", Chargemanager, DefaultKind::Text, 0, "NONE" },
    { "relayscheduler", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "relay/1/starttime", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "relay/1/stoptime", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "relay/2/starttime", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "relay/2/stoptime", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "resetresume", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "resetresumetransactiontimeout", Chargemanager, DefaultKind::Integer, 360, nullptr },
    { "RfidEnabled", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "sshPort", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "systemnotifiertimeout", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "ocpp/TimeSource", Chargemanager, DefaultKind::Text, 0, "heartbeat, ntp" },
    { "TransmitAllSecurityEvents", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "ups", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "Evse/EvseMinCurrent", Chargemanager, DefaultKind::Integer, 2, nullptr },
    { "meter_connection_timeout", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "pause_on_faulty_energy_meter", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "zeready", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "max_display_brightness", Chargemanager, DefaultKind::Integer, 4, nullptr },
    { "gateway", Chargemanager, DefaultKind::Text, 0, "" },
    { "nameserver", Chargemanager, DefaultKind::Text, 0, "8.8.8.8" },
    { "nameserver2", Chargemanager, DefaultKind::Text, 0, "8.8.4.4" },
    { "wan", Chargemanager, DefaultKind::Text, 0, "eth0" },
    { "interface/eth0/autoneg", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "interface/eth0/duplex", Chargemanager, DefaultKind::Text, 0, "full" },
    { "interface/eth0/ip", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/eth0/method", Chargemanager, DefaultKind::Text, 0, "dhcp" },
    { "interface/eth0/netmask", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/eth0/speed", Chargemanager, DefaultKind::Integer, 100, nullptr },
    { "interface/eth0/dhcpServer", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "interface/eth0/dhcpServerRangeBegin", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/eth0/dhcpServerRangeEnd", Chargemanager, DefaultKind::Text, 0, "" },
    { "HostName", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/eth1/autoneg", Chargemanager, DefaultKind::Integer, 1, nullptr },
    { "interface/eth1/duplex", Chargemanager, DefaultKind::Text, 0, "full" },
    { "interface/eth1/ip", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/eth1/method", Chargemanager, DefaultKind::Text, 0, "dhcp" },
    { "interface/eth1/netmask", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/eth1/speed", Chargemanager, DefaultKind::Integer, 100, nullptr },
    { "interface/ppp0/apn", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/ppp0/ip", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/ppp0/method", Chargemanager, DefaultKind::Text, 0, "dhcp" },
    { "interface/ppp0/netmask", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/ppp0/password", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/ppp0/rat", Chargemanager, DefaultKind::Text, 0, "3G" },
    { "interface/ppp0/username", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/wlan0/channel", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/wlan0/ip", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/wlan0/method", Chargemanager, DefaultKind::Text, 0, "dhcp" },
    { "interface/wlan0/mode", Chargemanager, DefaultKind::Text, 0, "client" },
    { "interface/wlan0/netmask", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/wlan0/passphrase", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/wlan0/ssid", Chargemanager, DefaultKind::Text, 0, "" },
    { "interface/wwan0/apn", Chargemanager, DefaultKind::Text, 0, "" },
    { "ModemFirmware", Virtual, DefaultKind::Text, 0, "N/A" },
    { "persistentlogging", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "demo", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "development/mobilenetworkinfo", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "development/delayed_modbus", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "development/haenabled", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "development/hamqttserver", Chargemanager, DefaultKind::Text, 0, "" },
    { "development/hamqttbasetopic", Chargemanager, DefaultKind::Text, 0, "" },
    { "development/disable_penalty_mode", Chargemanager, DefaultKind::Integer, 0, nullptr },
    { "features/CbcLoopCheck", Platform, DefaultKind::Integer, 1, nullptr },
    { "features/ExcessiveContactorToggleCheck", Platform, DefaultKind::Integer, 1, nullptr },
    { "ChargingStationModel", Virtual, DefaultKind::Text, 0, "N/A" },
    { "ChargingStationModelVersion", Virtual, DefaultKind::Text, 0, "N/A" },
    { "ChargingStationVendor", Virtual, DefaultKind::Text, 0, "N/A" },
    { "FirmwareVersion", Virtual, DefaultKind::Text, 0, "N/A" },
    { "hw_rev", Environment, DefaultKind::Text, 0, "N/A" },
    { "hwfeatures/lcd", Platform, DefaultKind::Integer, 0, nullptr },
    { "hwfeatures/mcu_version", Platform, DefaultKind::Integer, 2, nullptr },
    { "hwfeatures/rfid_devices", Platform, DefaultKind::Integer, 0, nullptr },
    { "hwfeatures/rfid_type", Platform, DefaultKind::Integer, 0, nullptr },
    { "mfgdate", Environment, DefaultKind::Text, 0, "N/A" },
    { "outlet/1/connector", Platform, DefaultKind::Integer, 2, nullptr },
    { "outlet/1/contactor_check", Platform, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/ConnectorPhaseRotation", Platform, DefaultKind::Text, 0, "RST" },
    { "outlet/1/EvsePhaseRotation", Platform, DefaultKind::Text, 0, "RST" },
    { "outlet/1/ACPhaseSwitchingSupported", Platform, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/energymeter", Platform, DefaultKind::Integer, -1, nullptr },
    { "outlet/1/fuse", Platform, DefaultKind::Integer, 16, nullptr },
    { "outlet/1/fuse_check", Platform, DefaultKind::Integer, 1, nullptr },
    { "outlet/1/phases", Platform, DefaultKind::Integer, 1, nullptr },
    { "outlet/1/plug_lock_engine", Platform, DefaultKind::Integer, 1, nullptr },
    { "outlet/1/energy_div", Platform, DefaultKind::Integer, 1000, nullptr },
    { "outlet/1/plc_capable", Platform, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/plc_capable", Platform, DefaultKind::Integer, 0, nullptr },
    { "outlet/1/plc_modem", Chargemanager, DefaultKind::Text, 0, "none" },
    { "outlet/2/plc_modem", Chargemanager, DefaultKind::Text, 0, "none" },
    { "outlet/1/evse_id", Chargemanager, DefaultKind::Text, 0, "ZZ000E1" },
    { "outlet/2/evse_id", Chargemanager, DefaultKind::Text, 0, "ZZ000E2" },
    { "outlet/1/charge_mode_priority", Chargemanager, DefaultKind::Text, 0, "only_basic" },
    { "outlet/2/charge_mode_priority", Chargemanager, DefaultKind::Text, 0, "only_basic" },
    { "outlet/2/connector", Platform, DefaultKind::Integer, 2, nullptr },
    { "outlet/2/contactor_check", Platform, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/ConnectorPhaseRotation", Platform, DefaultKind::Text, 0, "RST" },
    { "outlet/2/EvsePhaseRotation", Platform, DefaultKind::Text, 0, "RST" },
    { "outlet/2/ACPhaseSwitchingSupported", Platform, DefaultKind::Integer, 0, nullptr },
    { "outlet/2/energymeter", Platform, DefaultKind::Integer, -1, nullptr },
    { "outlet/2/fuse", Platform, DefaultKind::Integer, 16, nullptr },
    { "outlet/2/fuse_check", Platform, DefaultKind::Integer, 1, nullptr },
    { "outlet/2/phases", Platform, DefaultKind::Integer, 1, nullptr },
    { "outlet/2/plug_lock_engine", Platform, DefaultKind::Integer, 1, nullptr },
    { "outlet/2/energy_div", Platform, DefaultKind::Integer, 1000, nullptr },
    { "system/rfid_format", Platform, DefaultKind::Text, 0, "true" },
    { "serialno", Environment, DefaultKind::Text, 0, "N/A" },
    { "modbus/baudrate", Platform, DefaultKind::Integer, 9600, nullptr },
    { "modbus/debug", Platform, DefaultKind::Integer, 0, nullptr },
};

const Row *rowOf(Setting setting)
{
    return setting.isValid() ? &rows[setting.index()] : nullptr;
}

} // namespace

QString Setting::key() const
{
    const Row *row = rowOf(*this);
    return row ? QString::fromLatin1(row->key) : QString();
}

StorageClass Setting::storageClass() const
{
    const Row *row = rowOf(*this);
    return row ? row->storageClass : Virtual;
}

SettingValue Setting::defaultValue() const
{
    const Row *row = rowOf(*this);
    if (!row)
        return SettingValue();
    switch (row->defaultKind) {
    case DefaultKind::Integer:
        return SettingValue(row->integerDefault);
    case DefaultKind::Text:
        return SettingValue(QString::fromLatin1(row->textDefault));
    case DefaultKind::FreshUuid:
        // A new identity every time: an unconfigured station must never share one.
        return SettingValue(QUuid::createUuid().toString(QUuid::WithoutBraces));
    }
    return SettingValue();
}

QString Setting::publicName() const
{
    if (_index == Settings::OutletSize)
        return QStringLiteral("NumberOfConnectors");
    QString name = key();
    if (storageClass() == Platform)
        name.prepend(QLatin1String("platform/"));
    if (name.startsWith(QLatin1String("ocpp/")))
        name.remove(0, 5);
    return name;
}

Setting Setting::fromKey(const QString &key)
{
    for (quint32 i = 0; i < Settings::Count; ++i) {
        const QLatin1String rowKey(rows[i].key);
        if (key == rowKey || key == QLatin1String("ocpp/") + rowKey)
            return fromIndex(i);
    }
    return Setting();
}

Setting Setting::fromPublicName(const QString &publicName)
{
    for (quint32 i = 0; i < Settings::Count; ++i) {
        if (fromIndex(i).publicName() == publicName)
            return fromIndex(i);
    }
    return Setting();
}

QList<Setting> Setting::all()
{
    QList<Setting> settings;
    settings.reserve(Settings::Count);
    for (quint32 i = 0; i < Settings::Count; ++i)
        settings.append(fromIndex(i));
    return settings;
}
