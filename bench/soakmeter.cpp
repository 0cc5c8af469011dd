#include "soakmeter.h"

#include "meterdrig.h"

#include <cmath>

namespace {

// The drivers scale currents to mA, the PAC3220 sends a float; either holds a fresh value to
// well within this.
constexpr double currentTolerance = 0.0005;
// A serial meter is read about once a second, but each silent or slow neighbour on the line
// holds up a turn by up to 2 s (three attempts of a 0.5 s timeout), and a meter found stale
// rests the line 5 s.
constexpr qint64 serialAllowanceMs = 30000;
// A network meter notices a lost connection 15 s after its last good read, reconnects at most
// every 10 s, and is read again 100 ms later.
constexpr qint64 networkAllowanceMs = 45000;

// A current no meter of the run showed before, so that only a read made after it was set can
// show it.
double freshCurrent()
{
    static int drawn = 0;
    return 10.0 + double(++drawn % 10000) / 1000.0;
}

}

SoakMeter::SoakMeter(
    const QString &path, const QString &simulatorId, const QString &model, bool network)
    : _path(path)
    , _simulatorId(simulatorId)
    , _model(model)
    , _network(network)
{
}

bool SoakMeter::startFault(MeterdRig &rig, const QList<FaultSchedule::Phase> &phases, qint64 nowMs)
{
    _state = State::Faulted;
    _phases = phases;
    return enter(rig, _phases.takeFirst(), nowMs);
}

bool SoakMeter::advance(MeterdRig &rig, qint64 nowMs)
{
    if (_state != State::Faulted || nowMs < _phaseEndsMs)
        return true;
    return _phases.isEmpty() ? clearNow(rig, nowMs) : enter(rig, _phases.takeFirst(), nowMs);
}

bool SoakMeter::clearNow(MeterdRig &rig, qint64 nowMs)
{
    if (_state != State::Faulted)
        return true;
    const double current = freshCurrent();
    // The fault goes first, so that whatever shows the fresh current was read after it.
    const bool cleared = (_kind != "down" || command(rig, "up " + _simulatorId))
        && command(rig, "fault " + _simulatorId + " none")
        && command(rig, QStringLiteral("set %1 current1 %2").arg(_simulatorId).arg(current));
    _state = State::Recovering;
    _phases.clear();
    _kind.clear();
    _expectedCurrent = current;
    _clearedMs = nowMs;
    ++_faultsCleared;
    _events.append({ false, QStringLiteral("cleared, current1 set to %1").arg(current) });
    return cleared;
}

void SoakMeter::checkRecovery(const QVariantMap &values, qint64 nowMs)
{
    if (_state != State::Recovering)
        return;
    if (!values.isEmpty())
        _lastValues = values;
    const qint64 tookMs = nowMs - _clearedMs;
    if (values.value("status").toString() == "Connected"
        && std::abs(values.value("current1").toDouble() - _expectedCurrent) < currentTolerance) {
        _state = State::Idle;
        ++_recoveriesSeen;
        _longestRecoveryMs = qMax(_longestRecoveryMs, tookMs);
        _totalRecoveryMs += tookMs;
        _events.append({ false, QStringLiteral("recovered in %1 s").arg(tookMs / 1000.0) });
    } else if (tookMs > recoveryAllowanceMs()) {
        _state = State::Idle;
        _events.append({ true,
            QStringLiteral("NOT recovered %1 s after its fault cleared: status \"%2\", current1 "
                           "%3 where %4 was set")
                .arg(tookMs / 1000.0)
                .arg(_lastValues.value("status").toString())
                .arg(_lastValues.value("current1").toDouble())
                .arg(_expectedCurrent) });
    }
}

QList<SoakMeter::Event> SoakMeter::takeEvents()
{
    return std::exchange(_events, {});
}

qint64 SoakMeter::recoveryAllowanceMs() const
{
    return _network ? networkAllowanceMs : serialAllowanceMs;
}

// Each phase starts from a clean device: listening again and answering, then the new fault.
bool SoakMeter::enter(MeterdRig &rig, const FaultSchedule::Phase &phase, qint64 nowMs)
{
    const bool wasDown = _kind == "down";
    _kind = phase.kind;
    _phaseEndsMs = nowMs + phase.durationMs;
    ++_phasesByKind[phase.kind];
    _events.append(
        { false, QStringLiteral("%1 for %2 s").arg(phase.kind).arg(phase.durationMs / 1000.0) });
    if (wasDown && !command(rig, "up " + _simulatorId))
        return false;
    if (phase.kind == "down")
        return command(rig, "fault " + _simulatorId + " none")
            && command(rig, "down " + _simulatorId);
    return command(rig, "fault " + _simulatorId + ' ' + phase.kind);
}

bool SoakMeter::command(MeterdRig &rig, const QString &line)
{
    if (rig.simulator(line))
        return true;
    _events.append({ true, QStringLiteral("the simulator refused \"%1\"").arg(line) });
    return false;
}
