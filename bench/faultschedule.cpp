#include "faultschedule.h"

namespace {

const QStringList serialKinds { "silent", "slow", "exception" };
const QStringList networkKinds { "silent", "slow", "exception", "reset", "down" };

constexpr int shortestGapMs = 2000;
constexpr int longestGapMs = 6000;
constexpr int mostPhases = 3;
constexpr int shortestPhaseMs = 3000;
constexpr int longestPhaseMs = 20000;
// One fault in this many is a long one: past the 120 s after which the serial line's queue
// calls a silent meter faulty, and long enough for a network meter to fail several reconnects.
constexpr int longFaultOneIn = 10;
constexpr int shortestLongMs = 125000;
constexpr int longestLongMs = 150000;

}

FaultSchedule::FaultSchedule(quint32 seed)
    : _random(seed)
{
}

int FaultSchedule::nextGapMs()
{
    return between(shortestGapMs, longestGapMs);
}

int FaultSchedule::pickMeter(int count)
{
    return between(0, count - 1);
}

QList<FaultSchedule::Phase> FaultSchedule::drawFault(bool network)
{
    const QStringList &kinds = network ? networkKinds : serialKinds;
    const auto kind = [&] { return kinds.at(between(0, int(kinds.size()) - 1)); };
    if (between(1, longFaultOneIn) == 1)
        return { { kind(), between(shortestLongMs, longestLongMs) } };
    QList<Phase> phases;
    const int count = between(1, mostPhases);
    while (phases.size() < count) {
        const QString next = kind();
        // A phase of the same kind as the one before would only lengthen it.
        if (phases.isEmpty() || phases.last().kind != next)
            phases.append({ next, between(shortestPhaseMs, longestPhaseMs) });
    }
    return phases;
}

int FaultSchedule::between(int lowest, int highest)
{
    return int(_random.bounded(lowest, highest + 1));
}
