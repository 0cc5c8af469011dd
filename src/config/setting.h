#pragma once

#include <QList>
#include <QString>

class SettingValue;

namespace StorageClasses {
// Where a setting's value lives; the numbers are shared with the station's other services.
enum StorageClass { Chargemanager = 0, Platform = 1, Environment = 2, Virtual = 3 };
}
using StorageClass = StorageClasses::StorageClass;

namespace Settings {
// Index of every setting of the charging station. The numbering and its size are shared with
// the station's other services, so rows are never reordered or removed.
enum Id : quint32 {
    AllowOfflineTxForUnknownId = 0,
    AuthorizationCacheEnabled = 1,
    AuthorizeRemoteTxRequests = 2,
    AuthCacheLifeTime = 3,
    LocalAuthListEnabled = 4,
    ChargeProfileMaxStackLevel = 5,
    ChargingScheduleAllowedChargingRateUnit = 6,
    ChargingScheduleMaxPeriods = 7,
    ClockAlignedDataInterval = 8,
    ConnectionTimeOut = 9,
    ConnectorPhaseRotation = 10,
    HeartbeatInterval = 11,
    GetConfigurationMaxKeys = 12,
    LightIntensity = 13,
    LocalAuthListMaxLength = 14,
    LocalAuthorizeOffline = 15,
    LocalPreAuthorize = 16,
    MaxChargingProfilesInstalled = 17,
    MeterValuesAlignedData = 18,
    MeterValuesSampledData = 19,
    MeterValueSampleInterval = 20,
    MinimumStatusDuration = 21,
    OutletSize = 22,
    ReserveConnectorZeroSupported = 23,
    ResetRetries = 24,
    SendLocalListMaxLength = 25,
    StopTransactionOnEVSideDisconnect = 26,
    StopTransactionOnInvalidId = 27,
    StopTxAlignedData = 28,
    StopTxAlignedDataMaxLength = 29,
    StopTxSampledData = 30,
    StopTxSampledDataMaxLength = 31,
    SupportedFeatureProfiles = 32,
    SupportedFileTransferProtocols = 33,
    TransactionMessageAttempts = 34,
    TransactionMessageRetryInterval = 35,
    UnlockConnectorOnEVSideDisconnect = 36,
    WebSocketPingInterval = 37,
    AllowOfflineTxWithoutId = 38,
    Chargeboxidentity = 39,
    Endpoint = 40,
    CustomizationCtrlEnabled = 41,
    CustomizationCtrlSupported = 42,
    Fuse = 43,
    PhaseRotation = 44,
    Localcontroller = 45,
    IsLocalController = 46,
    Localproxy = 47,
    Modemtemperature = 48,
    Cxcidentity = 49,
    CxhomeMeterSerialno = 50,
    CxhomeMeterTotalenergy = 51,
    CXHomeMeterType = 52,
    NtpServerUri = 53,
    Onlinetimeout = 54,
    Availability = 55,
    Outlet1Authmode = 56,
    Outlet1Connections = 57,
    Outlet1Opentag = 58,
    Outlet1FallbackCurrent = 59,
    Outlet1FallbackOutput = 60,
    Outlet1SessionEnergyLimit = 61,
    Outlet1MeterSerialno = 62,
    Outlet1MeterTotalenergy = 63,
    Outlet1AllowChargingOnLockError = 64,
    Outlet1KeepCableLocked = 65,
    Outlet2Authmode = 66,
    Outlet2Connections = 67,
    Outlet2Opentag = 68,
    Outlet2FallbackCurrent = 69,
    Outlet2FallbackOutput = 70,
    Outlet2SessionEnergyLimit = 71,
    Outlet2MeterSerialno = 72,
    Outlet2MeterTotalenergy = 73,
    Outlet2AllowChargingOnLockError = 74,
    Outlet2KeepCableLocked = 75,
    PingrebootRetries = 76,
    PingrebootServer = 77,
    PingrebootTimeout = 78,
    Progtags = 79,
    Protocol = 80,
    Relayscheduler = 81,
    Relay1Starttime = 82,
    Relay1Stoptime = 83,
    Relay2Starttime = 84,
    Relay2Stoptime = 85,
    Resetresume = 86,
    Resetresumetransactiontimeout = 87,
    RfidEnabled = 88,
    SshPort = 89,
    Systemnotifiertimeout = 90,
    TimeSource = 91,
    TransmitAllSecurityEvents = 92,
    Ups = 93,
    EvseEvseMinCurrent = 94,
    MeterConnectionTimeout = 95,
    PauseOnFaultyEnergyMeter = 96,
    Zeready = 97,
    MaxDisplayBrightness = 98,
    Gateway = 99,
    Nameserver = 100,
    Nameserver2 = 101,
    Wan = 102,
    InterfaceEth0Autoneg = 103,
    InterfaceEth0Duplex = 104,
    InterfaceEth0Ip = 105,
    InterfaceEth0Method = 106,
    InterfaceEth0Netmask = 107,
    InterfaceEth0Speed = 108,
    InterfaceEth0DhcpServer = 109,
    InterfaceEth0DhcpServerRangeBegin = 110,
    InterfaceEth0DhcpServerRangeEnd = 111,
    HostName = 112,
    InterfaceEth1Autoneg = 113,
    InterfaceEth1Duplex = 114,
    InterfaceEth1Ip = 115,
    InterfaceEth1Method = 116,
    InterfaceEth1Netmask = 117,
    InterfaceEth1Speed = 118,
    InterfacePpp0Apn = 119,
    InterfacePpp0Ip = 120,
    InterfacePpp0Method = 121,
    InterfacePpp0Netmask = 122,
    InterfacePpp0Password = 123,
    InterfacePpp0Rat = 124,
    InterfacePpp0Username = 125,
    InterfaceWlan0Channel = 126,
    InterfaceWlan0Ip = 127,
    InterfaceWlan0Method = 128,
    InterfaceWlan0Mode = 129,
    InterfaceWlan0Netmask = 130,
    InterfaceWlan0Passphrase = 131,
    InterfaceWlan0Ssid = 132,
    InterfaceWwan0Apn = 133,
    ModemFirmware = 134,
    Persistentlogging = 135,
    Demo = 136,
    DevelopmentMobilenetworkinfo = 137,
    DevelopmentDelayedModbus = 138,
    DevelopmentHaenabled = 139,
    DevelopmentHamqttserver = 140,
    DevelopmentHamqttbasetopic = 141,
    DevelopmentDisablePenaltyMode = 142,
    FeaturesCbcLoopCheck = 143,
    FeaturesExcessiveContactorToggleCheck = 144,
    ChargingStationModel = 145,
    ChargingStationModelVersion = 146,
    ChargingStationVendor = 147,
    FirmwareVersion = 148,
    HwRev = 149,
    HwfeaturesLcd = 150,
    HwfeaturesMcuVersion = 151,
    HwfeaturesRfidDevices = 152,
    HwfeaturesRfidType = 153,
    Mfgdate = 154,
    Outlet1Connector = 155,
    Outlet1ContactorCheck = 156,
    Outlet1ConnectorPhaseRotation = 157,
    Outlet1EvsePhaseRotation = 158,
    Outlet1ACPhaseSwitchingSupported = 159,
    Outlet1Energymeter = 160,
    Outlet1Fuse = 161,
    Outlet1FuseCheck = 162,
    Outlet1Phases = 163,
    Outlet1PlugLockEngine = 164,
    Outlet1EnergyDiv = 165,
    Outlet1PlcCapable = 166,
    Outlet2PlcCapable = 167,
    Outlet1PlcModem = 168,
    Outlet2PlcModem = 169,
    Outlet1EvseId = 170,
    Outlet2EvseId = 171,
    Outlet1ChargeModePriority = 172,
    Outlet2ChargeModePriority = 173,
    Outlet2Connector = 174,
    Outlet2ContactorCheck = 175,
    Outlet2ConnectorPhaseRotation = 176,
    Outlet2EvsePhaseRotation = 177,
    Outlet2ACPhaseSwitchingSupported = 178,
    Outlet2Energymeter = 179,
    Outlet2Fuse = 180,
    Outlet2FuseCheck = 181,
    Outlet2Phases = 182,
    Outlet2PlugLockEngine = 183,
    Outlet2EnergyDiv = 184,
    SystemRfidFormat = 185,
    Serialno = 186,
    ModbusBaudrate = 187,
    ModbusDebug = 188,
    Invalid = 190,
};
constexpr quint32 Count = 189;
}

// One setting of the station's configuration: its key, storage class, default and public name.
class Setting
{
public:
    constexpr Setting() = default;
    constexpr Setting(Settings::Id id)
        : _index(id)
    {
    }
    static constexpr Setting fromIndex(quint32 index) { return Setting(Settings::Id(index)); }

    constexpr quint32 index() const { return _index; }
    constexpr bool isValid() const { return _index < Settings::Count; }

    QString key() const;
    StorageClass storageClass() const;
    SettingValue defaultValue() const;
    QString publicName() const;

    static Setting fromKey(const QString &key);
    static Setting fromPublicName(const QString &publicName);
    static QList<Setting> all();

    friend constexpr bool operator==(Setting a, Setting b) { return a._index == b._index; }

private:
    quint32 _index = Settings::Invalid;
};
