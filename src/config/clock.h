#pragma once

#include <QtGlobal>

// Monotonic time of the whole daemon. Tests move it forward with advance() so that timers of
// seconds to minutes (stale meters, watchdog, summaries) can be checked without waiting.
class Clock
{
public:
    static qint64 nowMs();
    static void advance(qint64 ms);
    // Sleeps the calling thread until the clock has moved on by ms, or the thread is asked to stop.
    static void sleepMs(qint64 ms);
};
