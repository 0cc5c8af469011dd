#pragma once

#include <QList>
#include <QRandomGenerator>
#include <QString>

// The random part of the soak run: when the next fault begins, which meter it hits, which kinds
// of fault follow each other on it and for how long. Everything comes from one generator, so a
// seed names a sequence of faults; their moments still shift a little with the machine's load.
class FaultSchedule
{
public:
    // One stretch of a fault, named as the simulator's commands name it: "silent", "slow",
    // "exception", and for network meters also "reset" (every request resets the connection)
    // and "down" (the device stops listening).
    struct Phase
    {
        QString kind;
        int durationMs = 0;
    };

    explicit FaultSchedule(quint32 seed);

    // Time from one fault's beginning to the next one's.
    int nextGapMs();
    // Which of count meters free of faults the next fault hits.
    int pickMeter(int count);
    // One to three kinds in a row; now and then a single long one that outlasts the time after
    // which the daemon declares a serial meter faulty.
    QList<Phase> drawFault(bool network);

private:
    int between(int lowest, int highest);

    QRandomGenerator _random;
};
