#pragma once

#include "exitcode.h"
#include "terminationsignals.h"

#include <QEventLoop>
#include <QObject>
#include <QTimer>

#include <functional>

// Drives the live view: one refresh at once, then one a second, until the wanted number of
// refreshes is done, a refresh fails, or SIGINT or SIGTERM arrives.
class WatchLoop : public QObject
{
    Q_OBJECT

public:
    // Answers ExitCode::Success to go on; any other status ends the loop with it.
    using Refresh = std::function<ExitCode::Code()>;

    // A count of 0 refreshes until interrupted.
    WatchLoop(Refresh refresh, int count);

    ExitCode::Code exec();

private:
    void _refreshOnce();
    void _finish(ExitCode::Code status);

    Refresh _refresh;
    int _count;
    int _done = 0;
    QTimer _timer;
    QEventLoop _loop;
    TerminationSignals _signals;
};
