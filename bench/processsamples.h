#pragma once

#include <QList>
#include <QtGlobal>

// Resident memory, open file descriptors and threads of one process, sampled over a long run,
// to tell growth that goes on from a level that settles.
class ProcessSamples
{
public:
    struct Sample
    {
        double minutes = 0;
        qint64 rssKb = 0;
        int fds = 0;
        int threads = 0;
    };

    explicit ProcessSamples(qint64 pid);

    // Reads /proc now; minutes is the time into the run.
    void take(double minutes);

    qsizetype count() const { return _samples.size(); }
    Sample first() const { return _samples.value(0); }
    Sample last() const { return _samples.isEmpty() ? Sample() : _samples.last(); }
    // The largest value of each field over the run (minutes unused).
    Sample peak() const;
    // Least-squares slope of the resident memory over the samples taken from fromMinutes on,
    // in kB per minute; 0 with fewer than two of them.
    double rssSlopeKbPerMinute(double fromMinutes) const;

private:
    qint64 _pid;
    QList<Sample> _samples;
};
