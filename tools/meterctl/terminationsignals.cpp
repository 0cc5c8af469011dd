#include "terminationsignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Only a plain integer can be shared with a signal handler.
volatile std::sig_atomic_t handlerSocket = -1;

constexpr int terminationSignals[] = { SIGINT, SIGTERM };

} // namespace

TerminationSignals::TerminationSignals(QObject *parent)
    : QObject(parent)
{
    // Without the socket pair the signals keep their default action and still end the process.
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, _sockets) != 0)
        return;
    handlerSocket = _sockets[1];
    _notifier = new QSocketNotifier(_sockets[0], QSocketNotifier::Read, this);
    connect(_notifier, &QSocketNotifier::activated, this, &TerminationSignals::received);

    struct sigaction action = {};
    action.sa_handler = _handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signalNumber : terminationSignals)
        sigaction(signalNumber, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    if (!_notifier)
        return;
    for (int signalNumber : terminationSignals)
        std::signal(signalNumber, SIG_DFL);
    handlerSocket = -1;
    ::close(_sockets[0]);
    ::close(_sockets[1]);
}

void TerminationSignals::_handle(int)
{
    // A full socket already holds a wake-up, so a failed write loses nothing.
    [[maybe_unused]] const ssize_t written = ::write(handlerSocket, "x", 1);
}
