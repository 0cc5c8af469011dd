#include "watchloop.h"

namespace {

constexpr int refreshIntervalMs = 1000;

} // namespace

WatchLoop::WatchLoop(Refresh refresh, int count)
    : _refresh(std::move(refresh))
    , _count(count)
{
    _timer.setInterval(refreshIntervalMs);
    connect(&_timer, &QTimer::timeout, this, &WatchLoop::_refreshOnce);
    // Being stopped is how a live view normally ends.
    connect(&_signals, &TerminationSignals::received, this, [this] { _finish(ExitCode::Success); });
}

ExitCode::Code WatchLoop::exec()
{
    // Queued, because an exit() asked for before the loop runs would be forgotten.
    QTimer::singleShot(0, this, &WatchLoop::_refreshOnce);
    _timer.start();
    return ExitCode::Code(_loop.exec());
}

void WatchLoop::_refreshOnce()
{
    const ExitCode::Code status = _refresh();
    if (status != ExitCode::Success)
        _finish(status);
    else if (++_done == _count)
        _finish(ExitCode::Success);
}

void WatchLoop::_finish(ExitCode::Code status)
{
    // Stopped first: a timeout already due in the same round of events must not print again.
    _timer.stop();
    _loop.exit(status);
}
