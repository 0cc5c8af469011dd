#include "privatebus.h"

#include <QFile>

namespace {

const char *const permissivePolicy = R"(
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
)";

const char *const systemPolicy = R"(
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
  <includedir>%1</includedir>
)";

} // namespace

PrivateBus::PrivateBus(const QString &policyDirectory)
{
    // Other users pass through the directory to the socket (dbus-daemon makes it 0777), but
    // cannot list or change it.
    QFile::setPermissions(_dir.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    QFile config(_dir.filePath(QStringLiteral("bus.conf")));
    if (!config.open(QIODevice::WriteOnly))
        return;
    const QString policy = policyDirectory.isEmpty()
        ? QString::fromLatin1(permissivePolicy)
        : QString::fromLatin1(systemPolicy).arg(policyDirectory);
    config.write(QStringLiteral(
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
        "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig>\n  <type>system</type>\n  <listen>unix:path=%1</listen>\n"
        "  <auth>EXTERNAL</auth>\n%2\n</busconfig>\n")
                     .arg(_dir.filePath(QStringLiteral("socket")), policy)
                     .toUtf8());
    config.close();

    // Standard error goes to a file, which no pipe limits however long the bus runs.
    _daemon.setStandardErrorFile(_dir.filePath(QStringLiteral("dbus-daemon.log")));
    _daemon.start(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--config-file=") + config.fileName(), QStringLiteral("--nofork"),
            QStringLiteral("--print-address=1") });
    if (_daemon.waitForStarted() && _daemon.waitForReadyRead(10000))
        _address = QString::fromUtf8(_daemon.readLine()).trimmed();
}

PrivateBus::~PrivateBus()
{
    _daemon.terminate();
    _daemon.waitForFinished();
}
