#include "productiontestdaemon.h"


#include <QFile>

ProductionTestDaemon::ProductionTestDaemon(
    const QString &busAddress, const QString &ocuDevice, const QString &externalDevice)
{
    _files.write("platform.ini", "[outlet]\nsize=1\n");
    _files.write("platform.conf", "");
    QProcessEnvironment environment = _files.daemonEnvironment(busAddress, _notify.path());
    environment.insert("CM_MODBUS_OCU_DEVICE", ocuDevice);
    environment.insert("CM_MODBUS_EXT_DEVICE", externalDevice);
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
