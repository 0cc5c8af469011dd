#pragma once

#include <QByteArray>
#include <QList>
#include <QTemporaryDir>

#include <atomic>
#include <thread>

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
    // From now on reads and drops every message in a thread of its own, as the service manager
    // reads its socket: the queue of a datagram socket holds only a few messages, and once it is
    // full the daemon's next notification blocks its main thread. For daemons that run for
    // minutes; receive() must not be called any more.
    void keepDraining();

private:
    QTemporaryDir _dir;
    int _fd = -1;
    std::atomic<bool> _stopDraining { false };
    std::thread _drain;
};
