#include "processsamples.h"

#include "processstats.h"

#include <algorithm>

ProcessSamples::ProcessSamples(qint64 pid)
    : _pid(pid)
{
}

void ProcessSamples::take(double minutes)
{
    _samples.append({ minutes, ProcessStats::rssKb(_pid), ProcessStats::openFds(_pid),
        ProcessStats::threads(_pid) });
}

qint64 ProcessSamples::maxRssKb() const
{
    qint64 most = 0;
    for (const Sample &sample : _samples)
        most = std::max(most, sample.rssKb);
    return most;
}

int ProcessSamples::maxFds() const
{
    int most = 0;
    for (const Sample &sample : _samples)
        most = std::max(most, sample.fds);
    return most;
}

int ProcessSamples::maxThreads() const
{
    int most = 0;
    for (const Sample &sample : _samples)
        most = std::max(most, sample.threads);
    return most;
}

double ProcessSamples::rssSlopeKbPerMinute(double fromMinutes) const
{
    double n = 0;
    double sumT = 0;
    double sumR = 0;
    for (const Sample &sample : _samples) {
        if (sample.minutes < fromMinutes)
            continue;
        n += 1;
        sumT += sample.minutes;
        sumR += double(sample.rssKb);
    }
    if (n < 2)
        return 0;
    const double meanT = sumT / n;
    const double meanR = sumR / n;
    double covariance = 0;
    double variance = 0;
    for (const Sample &sample : _samples) {
        if (sample.minutes < fromMinutes)
            continue;
        covariance += (sample.minutes - meanT) * (double(sample.rssKb) - meanR);
        variance += (sample.minutes - meanT) * (sample.minutes - meanT);
    }
    return variance > 0 ? covariance / variance : 0;
}
