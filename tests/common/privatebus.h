#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A dbus-daemon of the test's own with a system-bus-like configuration (a "system" bus type,
// EXTERNAL authentication). Point DBUS_SYSTEM_BUS_ADDRESS at address(); the machine's real
// system bus is never touched. A policy file may replace the permissive default policy.
class PrivateBus
{
public:
    explicit PrivateBus(const QString &policyFile = QString());
    ~PrivateBus();

    bool isReady() const { return !_address.isEmpty(); }
    QString address() const { return _address; }

private:
    QTemporaryDir _dir;
    QProcess _daemon;
    QString _address;
};
