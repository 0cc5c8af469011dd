#pragma once

#include "clock.h"

#include <atomic>

// Time since a moment, on Clock. Safe to restart in one thread and read in another.
class ElapsedClock
{
public:
    ElapsedClock() { start(); }

    void start() { _startMs = Clock::nowMs(); }
    qint64 restart()
    {
        const qint64 now = Clock::nowMs();
        return now - _startMs.exchange(now);
    }
    qint64 elapsed() const { return Clock::nowMs() - _startMs.load(); }
    bool hasExpired(qint64 ms) const { return elapsed() > ms; }

private:
    std::atomic<qint64> _startMs { 0 };
};
