#include "productiontestdaemon.h"

#include <QFile>

ProductionTestDaemon::ProductionTestDaemon(
    const QString &busAddress, const QString &ocuDevice, const QString &externalDevice)
{
    _files.write("platform.ini", "[outlet]\nsize=1\n");
    _files.write("platform.conf", "");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("NOTIFY_SOCKET", _notify.path());
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
    environment.insert("CM_PLATFORMINI", _files.path("platform.ini"));
    environment.insert("CM_CHARGEMANAGERCONFIG", _files.path("chargemanager.ini"));
    environment.insert("CM_PLATFORMCONFIG", _files.path("platform.conf"));
    environment.insert("CM_MODBUS_OCU_DEVICE", ocuDevice);
    environment.insert("CM_MODBUS_EXT_DEVICE", externalDevice);
    environment.remove("QT_LOGGING_RULES");
    _process.setProcessEnvironment(environment);
    _process.setStandardErrorFile(_files.path("meterd.log"));
    _process.start(METERD_BINARY, {});
    _ready = _notify.receive(10000);
}

ProductionTestDaemon::~ProductionTestDaemon()
{
    _process.terminate();
    _process.waitForFinished();
}

QString ProductionTestDaemon::log() const
{
    QFile file(_files.path("meterd.log"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}
