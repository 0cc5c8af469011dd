#include "secctypes.h"

#include "dbusenum.h"

#include <QDBusMetaType>

namespace SeccTypes {

void registerTypes()
{
    qRegisterMetaType<EnergyTransferMode>();
    qRegisterMetaType<ChargingProgress>();
    qRegisterMetaType<V2GCommunicationState>();
    qRegisterMetaType<QList<EnergyTransferMode>>();
    qRegisterMetaType<PowerSchedules_t>("SeccTypes::PowerSchedules_t");
    qRegisterMetaType<ChargingSchedules_t>("SeccTypes::ChargingSchedules_t");
    qDBusRegisterMetaType<QList<EnergyTransferMode>>();
    // The schedules stream through QtDBus's list and map operators, entry by entry.
    qDBusRegisterMetaType<PowerSchedules_t>();
    qDBusRegisterMetaType<ChargingSchedules_t>();
}

QDBusArgument &operator<<(QDBusArgument &argument, const QList<EnergyTransferMode> &modes)
{
    return DBusEnum::writeList(argument, modes);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, QList<EnergyTransferMode> &modes)
{
    return DBusEnum::readList(argument, modes);
}

} // namespace SeccTypes
