#include "alarmstatus.h"

#include <QLoggingCategory>

// The outlet category of the station's outlet services, where alarms are journalled.
Q_LOGGING_CATEGORY(lcAlarmStatus, "outlet", QtDebugMsg)

AlarmStatus::AlarmStatus(QObject *parent)
    : QObject(parent)
{
    Alarms::registerTypes();
    qRegisterMetaType<AlarmStatus *>("AlarmStatus");
}

bool AlarmStatus::raise(Alarms::AlarmType alarm)
{
    if (contains(alarm))
        return false;
    // Alarms are journalled as their numbers, which the other services share.
    qCCritical(lcAlarmStatus) << __func__ << "Alarm raised:" << int(alarm);
    _activeAlarms.append(alarm);
    emit alarmsUpdated();
    return true;
}

bool AlarmStatus::clear(Alarms::AlarmType alarm)
{
    if (!contains(alarm))
        return false;
    qCInfo(lcAlarmStatus) << __func__ << "Alarm cleared:" << int(alarm);
    _activeAlarms.removeAll(alarm);
    emit alarmsUpdated();
    return true;
}

void AlarmStatus::printActiveAlarms() const
{
    for (const Alarms::AlarmType alarm : _activeAlarms)
        qCCritical(lcAlarmStatus) << __func__ << int(alarm);
}
