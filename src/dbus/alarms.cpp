#include "alarms.h"

#include "dbusenum.h"

#include <QDBusMetaType>

namespace Alarms {

void registerTypes()
{
    qRegisterMetaType<AlarmType>();
    qRegisterMetaType<QList<AlarmType>>();
    qDBusRegisterMetaType<QList<AlarmType>>();
}

QDBusArgument &operator<<(QDBusArgument &argument, const QList<AlarmType> &alarms)
{
    return DBusEnum::writeList(argument, alarms);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, QList<AlarmType> &alarms)
{
    return DBusEnum::readList(argument, alarms);
}

} // namespace Alarms
