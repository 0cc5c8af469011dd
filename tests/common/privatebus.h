#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A dbus-daemon of the test's own with a system-bus-like configuration (a "system" bus type,
// EXTERNAL authentication). Point DBUS_SYSTEM_BUS_ADDRESS at address(); the machine's real
// system bus is never touched. The socket is reachable by every user, so a test can call as
// an unprivileged user.
class PrivateBus
{
public:
    // Without a policy directory everything is allowed. With one, the bus is configured the way
    // Debian configures the system bus: the default policy lets everybody connect, send signals
    // and replies and talk to the bus itself, but denies owning names and sending method calls;
    // the services' policy files in the directory open holes.
    explicit PrivateBus(const QString &policyDirectory = QString());
    ~PrivateBus();

    bool isReady() const { return !_address.isEmpty(); }
    QString address() const { return _address; }

private:
    QTemporaryDir _dir;
    QProcess _daemon;
    QString _address;
};
