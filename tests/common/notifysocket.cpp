#include "notifysocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace {
// How long the drain waits at most before it looks whether it should stop.
constexpr int drainPollMs = 200;
}

NotifySocket::NotifySocket()
{
    _fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const QByteArray file = path().toLocal8Bit();
    std::strncpy(address.sun_path, file.constData(), sizeof(address.sun_path) - 1);
    bind(_fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
}

NotifySocket::~NotifySocket()
{
    _stopDraining = true;
    if (_drain.joinable())
        _drain.join();
    close(_fd);
}

QString NotifySocket::path() const
{
    return _dir.filePath(QStringLiteral("notify"));
}

QByteArray NotifySocket::receive(int timeoutMs)
{
    pollfd descriptor { _fd, POLLIN, 0 };
    if (poll(&descriptor, 1, timeoutMs) <= 0)
        return {};
    QByteArray buffer(4096, '\0');
    const ssize_t length = recv(_fd, buffer.data(), size_t(buffer.size()), 0);
    buffer.resize(length > 0 ? int(length) : 0);
    return buffer;
}

void NotifySocket::keepDraining()
{
    _drain = std::thread([this] {
        while (!_stopDraining)
            receive(drainPollMs);
    });
}
