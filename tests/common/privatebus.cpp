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

} // namespace

PrivateBus::PrivateBus(const QString &policyFile)
{
    QFile config(_dir.filePath(QStringLiteral("bus.conf")));
    if (!config.open(QIODevice::WriteOnly))
        return;
    const QString policy = policyFile.isEmpty()
        ? QString::fromLatin1(permissivePolicy)
        : QStringLiteral("<include>%1</include>").arg(policyFile);
    config.write(QStringLiteral(
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
        "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig>\n  <type>system</type>\n  <listen>unix:path=%1</listen>\n"
        "  <auth>EXTERNAL</auth>\n%2\n</busconfig>\n")
                     .arg(_dir.filePath(QStringLiteral("socket")), policy)
                     .toUtf8());
    config.close();

    _daemon.start(QStringLiteral("dbus-daemon"),
        { QStringLiteral("--config-file=") + config.fileName(), QStringLiteral("--nofork"),
            QStringLiteral("--print-address=1") });
    if (!_daemon.waitForStarted() || !_daemon.waitForReadyRead(10000))
        return;
    _address = QString::fromUtf8(_daemon.readLine()).trimmed();
}

PrivateBus::~PrivateBus()
{
    _daemon.terminate();
    _daemon.waitForFinished();
}
