#pragma once

#include "faultschedule.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QVariantMap>

class MeterdRig;

// One meter of the soak run as its faults see it: idle, then under a fault of one or more
// phases, then recovering, from the moment the fault cleared and a fresh current was set in the
// simulator until the daemon's metervalues shows that current with status "Connected". Only a
// read made after the fault can show the fresh value; a drifting one could match by chance.
class SoakMeter
{
public:
    struct Event
    {
        bool failure = false;
        QString text;
    };

    SoakMeter(const QString &path, const QString &simulatorId, const QString &model, bool network);

    QString path() const { return _path; }
    QString model() const { return _model; }
    bool isNetwork() const { return _network; }
    bool isIdle() const { return _state == State::Idle; }
    bool isFaulted() const { return _state == State::Faulted; }
    bool isRecovering() const { return _state == State::Recovering; }

    // Commands go to the simulator through the rig; each of these is false when it refused one.
    bool startFault(MeterdRig &rig, const QList<FaultSchedule::Phase> &phases, qint64 nowMs);
    // Moves on to the next phase, or clears the fault, once the current phase is over.
    bool advance(MeterdRig &rig, qint64 nowMs);
    // Clears the fault at once, whatever phase it is in (the end of the run).
    bool clearNow(MeterdRig &rig, qint64 nowMs);
    // Looks at what metervalues answered while recovering; gives the recovery up once it takes
    // longer than the daemon's design allows.
    void checkRecovery(const QVariantMap &values, qint64 nowMs);
    // What happened since the last call: phases, recoveries and failed recoveries.
    QList<Event> takeEvents();

    int faultsCleared() const { return _faultsCleared; }
    int recoveriesSeen() const { return _recoveriesSeen; }
    qint64 longestRecoveryMs() const { return _longestRecoveryMs; }
    qint64 totalRecoveryMs() const { return _totalRecoveryMs; }
    const QMap<QString, int> &phasesByKind() const { return _phasesByKind; }
    qint64 recoveryAllowanceMs() const;

private:
    enum class State { Idle, Faulted, Recovering };

    bool enter(MeterdRig &rig, const FaultSchedule::Phase &phase, qint64 nowMs);
    bool command(MeterdRig &rig, const QString &line);

    const QString _path;
    const QString _simulatorId;
    const QString _model;
    const bool _network;
    State _state = State::Idle;
    QList<FaultSchedule::Phase> _phases;
    QString _kind;
    qint64 _phaseEndsMs = 0;
    double _expectedCurrent = 0;
    qint64 _clearedMs = 0;
    QVariantMap _lastValues;
    int _faultsCleared = 0;
    int _recoveriesSeen = 0;
    qint64 _longestRecoveryMs = 0;
    qint64 _totalRecoveryMs = 0;
    QMap<QString, int> _phasesByKind;
    QList<Event> _events;
};
