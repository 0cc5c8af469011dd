#include "signalwatcher.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int writeEnd = -1;

// Only async-signal-safe calls here: write the signal number into the pipe and leave.
void handle(int signalNumber)
{
    const int savedErrno = errno;
    const auto byte = static_cast<char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(writeEnd, &byte, 1);
    errno = savedErrno;
}

}

SignalWatcher::SignalWatcher(QObject *parent)
    : QObject(parent)
{
}

SignalWatcher::~SignalWatcher()
{
    if (_pipe[0] < 0)
        return;
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    writeEnd = -1;
    _notifier.reset();
    ::close(_pipe[0]);
    ::close(_pipe[1]);
}

bool SignalWatcher::watch(QString *error)
{
    if (::pipe2(_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        *error = QStringLiteral("pipe: %1").arg(qt_error_string(errno));
        return false;
    }
    writeEnd = _pipe[1];
    _notifier = std::make_unique<QSocketNotifier>(_pipe[0], QSocketNotifier::Read);
    connect(_notifier.get(), &QSocketNotifier::activated, this, &SignalWatcher::onSignalled);
    struct sigaction action
    {
    };
    action.sa_handler = handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(SIGTERM, &action, nullptr) != 0 || ::sigaction(SIGINT, &action, nullptr) != 0) {
        *error = QStringLiteral("sigaction: %1").arg(qt_error_string(errno));
        return false;
    }
    return true;
}

void SignalWatcher::onSignalled()
{
    char byte = 0;
    if (::read(_pipe[0], &byte, 1) == 1)
        emit terminationRequested(byte);
}
