#pragma once

#include <QtGlobal>

#include <functional>

// Monotonic time of the whole daemon. Tests move it forward with advance() so that timers of
// seconds to minutes (stale meters, watchdog, summaries) can be checked without waiting.
class Clock
{
public:
    static qint64 nowMs();
    static void advance(qint64 ms);
    // Sleeps the calling thread until the clock has moved on by ms, the thread is asked to stop,
    // or wakeWhen (when given) answers true. The thread does not wake in between unless one of
    // these may have changed: advance() and wakeSleepers() wake it to look again.
    static void sleepMs(qint64 ms, const std::function<bool()> &wakeWhen = {});
    // Call after requestInterruption() on a thread that may sleep here, or after changing what a
    // sleeper's wakeWhen looks at.
    static void wakeSleepers();
};
