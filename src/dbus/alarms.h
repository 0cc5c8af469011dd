#pragma once

#include <QDBusArgument>
#include <QList>
#include <QObject>

// The station-wide alarm kinds. The numbers are shared with the station's other services and
// must never move; 1 and 39 are not assigned.
namespace Alarms {
Q_NAMESPACE

enum AlarmType : int {
    UnknownError = 0,
    Fuse = 2,
    Earthbreaker = 3,
    Contactor = 4,
    McuTimeout = 5,
    HighTemperature = 6,
    ConnectorLockFailure = 7,
    CbcLoop = 8,
    OcuGeneric = 9,
    NoPp = 10,
    OcuRcmDc = 11,
    OcuRcmAc = 12,
    OcuTemperature1 = 13,
    OcuTemperature2 = 14,
    OcuSelftestFailed = 15,
    OcuGpioExpander = 16,
    OcuNegativeCp = 17,
    OcuEnergyMeter = 18,
    OcuRelayCountReached = 19,
    OcuFirmwareUpdateError = 20,
    OcuRcmCalibrationFailed = 21,
    EvOvercurrent = 22,
    SessionEnergyReached = 23,
    CxConfiguration = 24,
    CxClientLostConnection = 25,
    FwUpdateRebootAwaitingEvDisconnect = 26,
    CxEmsOffline = 27,
    CxHomeOvercurrentShutdown = 28,
    ExcessiveContactorToggleCycles = 29,
    OcuErrorModbusCommunication = 30,
    VentilationNotSupported = 31,
    FrequentPpChanges = 32,
    OcuErrorGmi = 33,
    OcuErrorFsmcuHeartbeatLost = 34,
    MaxEnergyOnInvalidIdReached = 35,
    SessionAuthenticationNotPossible = 36,
    CxClientIncorrectPSK = 37,
    CxClientConnectionRefused = 38,
    OcuRelayWelded = 40,
    EnergyMeterCommunication = 41,
    OcuCpShorted = 42,
};
Q_ENUM_NS(AlarmType)

// Makes AlarmType and lists of it usable in queued signals, and the lists as D-Bus type "ai" (a
// single alarm travels as its number, "i"). Safe to call more than once.
void registerTypes();

QDBusArgument &operator<<(QDBusArgument &argument, const QList<AlarmType> &alarms);
const QDBusArgument &operator>>(const QDBusArgument &argument, QList<AlarmType> &alarms);

} // namespace Alarms
