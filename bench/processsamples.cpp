#include "processsamples.h"

#include "processstats.h"

#include <algorithm>

ProcessSamples::ProcessSamples(qint64 pid)
    : _pid(pid)
{
}

void ProcessSamples::take(double minutes)
{
    const QByteArray status = ProcessStats::procFile(_pid, "status");
    _samples.append({ minutes, ProcessStats::field(status, "VmRSS"), ProcessStats::openFds(_pid),
        int(ProcessStats::field(status, "Threads")) });
}

ProcessSamples::Sample ProcessSamples::peak() const
{
    Sample most;
    for (const Sample &sample : _samples) {
        most.rssKb = std::max(most.rssKb, sample.rssKb);
        most.fds = std::max(most.fds, sample.fds);
        most.threads = std::max(most.threads, sample.threads);
    }
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
