#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A dbus-daemon of the test's own, configured the way Debian configures the system bus: the
// default policy lets everybody connect, send signals and replies and talk to the bus itself,
// but denies owning names and sending method calls; services open holes with the policy files
// of an <includedir>. The socket is reachable by every user, so a test can call as an
// unprivileged user. The machine's real system bus is never touched.
class SystemBus
{
public:
    explicit SystemBus(const QString &policyDirectory);
    ~SystemBus();

    bool isReady() const { return !_address.isEmpty(); }
    QString address() const { return _address; }
    // What dbus-daemon reported while it read its configuration. A policy file that does not
    // parse is only reported there: the bus starts without it, as the real system bus does.
    QString startupLog() const { return _startupLog; }

private:
    QTemporaryDir _dir;
    QProcess _daemon;
    QString _address;
    QString _startupLog;
};

// The result of one method call made with dbus-send as a given user.
struct BusCallResult
{
    int exitCode = -1;
    QString reply; // dbus-send's printed reply
    // dbus-send's error line, e.g. "Error org.freedesktop.DBus.Error.AccessDenied: ..."
    QString error;

    bool accessDenied() const
    {
        return error.contains(QLatin1String("org.freedesktop.DBus.Error.AccessDenied"));
    }
};

// Calls a method on the bus as `user` (with that user's primary group and no supplementary
// groups). Arguments are written as dbus-send takes them, e.g. "string:modbus/1/7".
BusCallResult callAs(const QString &user, const QString &address, const QString &destination,
    const QString &path, const QString &interfaceAndMember, const QStringList &arguments = {});
