#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMap>
#include <QObject>
#include <QVariantMap>

// Types of the SECC's D-Bus interfaces. An enumeration value travels as its number ("i"), a
// list of energy transfer modes as "ai"; the schedules as lists of dictionaries:
// PowerSchedules_t is "aa{sv}", ChargingSchedules_t "a{yaa{sv}}" (schedule id to its entries).
namespace SeccTypes {
Q_NAMESPACE

enum EnergyTransferMode : int {
    AC_Single_Phase,
    AC_Three_Phase,
    DC_Core,
    DC_Extended,
    DC_Combo_Core,
    DC_Unique,
    AC_BPT_Single_Phase,
    AC_BPT_Three_Phase,
};
Q_ENUM_NS(EnergyTransferMode)

enum ChargingProgress : int { Terminate = 0, Pause = 1 };
Q_ENUM_NS(ChargingProgress)

enum V2GCommunicationState : int { SetupFinished = 0, Terminated = 1 };
Q_ENUM_NS(V2GCommunicationState)

// One map per entry of the vehicle's charging profile.
using PowerSchedules_t = QList<QVariantMap>;
// Schedule id to the entries of that schedule.
using ChargingSchedules_t = QMap<quint8, QList<QVariantMap>>;

// Makes these types usable in queued signals and as D-Bus arguments. Safe to call more than
// once.
void registerTypes();

QDBusArgument &operator<<(QDBusArgument &argument, const QList<EnergyTransferMode> &modes);
const QDBusArgument &operator>>(const QDBusArgument &argument, QList<EnergyTransferMode> &modes);

} // namespace SeccTypes
