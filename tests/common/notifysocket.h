#pragma once

#include <QByteArray>
#include <QList>
#include <QTemporaryDir>

// A datagram socket standing in for the service manager's notification socket: point
// NOTIFY_SOCKET at path() and read what the service sent.
class NotifySocket
{
public:
    NotifySocket();
    ~NotifySocket();

    QString path() const;
    // The next message, or an empty array when none arrives within the time.
    QByteArray receive(int timeoutMs);

private:
    QTemporaryDir _dir;
    int _fd = -1;
};
