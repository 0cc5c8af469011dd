#pragma once

#include "alarms.h"

#include <QList>
#include <QObject>

// The active alarms of a charging outlet, in the order they were raised, each held once.
// Listeners learn of every change through alarmsUpdated().
class AlarmStatus : public QObject
{
    Q_OBJECT

public:
    explicit AlarmStatus(QObject *parent = nullptr);

    // False when the alarm was already active; nothing is logged or signalled then.
    bool raise(Alarms::AlarmType alarm);
    // False when the alarm was not active; nothing is logged or signalled then.
    bool clear(Alarms::AlarmType alarm);
    bool contains(Alarms::AlarmType alarm) const { return _activeAlarms.contains(alarm); }
    bool hasActiveAlarms() const { return !_activeAlarms.isEmpty(); }
    void printActiveAlarms() const;

signals:
    void alarmsUpdated();

private:
    QList<Alarms::AlarmType> _activeAlarms;
};
