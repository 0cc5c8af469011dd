#include "systembus.h"

#include <QFile>

#include <pwd.h>

namespace {

const char *const configuration
    = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Properties"/>
    <deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"
          send_member="UpdateActivationEnvironment"/>
  </policy>
  <includedir>%2</includedir>
</busconfig>
)";

} // namespace

SystemBus::SystemBus(const QString &policyDirectory)
{
    // Other users pass through the directory to the socket (dbus-daemon makes it 0777), but
    // cannot list or change it.
    QFile::setPermissions(_dir.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    QFile config(_dir.filePath(QStringLiteral("system.conf")));
    if (!config.open(QIODevice::WriteOnly))
        return;
    config.write(QString::fromLatin1(configuration)
                     .arg(_dir.filePath(QStringLiteral("socket")), policyDirectory)
                     .toUtf8());
    config.close();

    // Standard error goes to a file, which no pipe limits however long the bus runs. The
    // configuration is read, and its errors written, before the address is printed.
    const QString log = _dir.filePath(QStringLiteral("dbus-daemon.log"));
    _daemon.setStandardErrorFile(log);
    _daemon.start(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--config-file=") + config.fileName(), QStringLiteral("--nofork"),
            QStringLiteral("--print-address=1") });
    if (_daemon.waitForStarted() && _daemon.waitForReadyRead(10000))
        _address = QString::fromUtf8(_daemon.readLine()).trimmed();
    QFile errors(log);
    if (errors.open(QIODevice::ReadOnly))
        _startupLog = QString::fromUtf8(errors.readAll());
}

SystemBus::~SystemBus()
{
    _daemon.terminate();
    _daemon.waitForFinished();
}

BusCallResult callAs(const QString &user, const QString &address, const QString &destination,
    const QString &path, const QString &interfaceAndMember, const QStringList &arguments)
{
    BusCallResult result;
    const passwd *account = getpwnam(user.toLocal8Bit().constData());
    if (!account)
        return result;
    QProcess process;
    process.start(QStringLiteral("setpriv"),
        QStringList { QStringLiteral("--reuid=%1").arg(account->pw_uid),
            QStringLiteral("--regid=%1").arg(account->pw_gid), QStringLiteral("--clear-groups"),
            QStringLiteral("dbus-send"), QStringLiteral("--bus=") + address,
            QStringLiteral("--print-reply"), QStringLiteral("--reply-timeout=20000"),
            QStringLiteral("--dest=") + destination, path, interfaceAndMember }
            + arguments);
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.reply = QString::fromUtf8(process.readAllStandardOutput());
    result.error = QString::fromUtf8(process.readAllStandardError()).trimmed();
    return result;
}
