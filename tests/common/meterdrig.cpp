#include "meterdrig.h"

#include <QFile>
#include <QThread>

MeterdRig::MeterdRig(const QByteArray &scenario, const QByteArray &corvix,
    const QStringList &networkMeters, const QString &policyDirectory)
    : _bus(policyDirectory)
    , _simulator(scenario)
    , _daemonBinary(QStringLiteral(METERD_BINARY))
{
    for (const QString &meter : networkMeters)
        _networkMeters << "--tcp" << meter;
    _files.write("corvix.ini", corvix);
    _files.write("platform.ini", "[outlet]\nsize=0\n");
    _files.write("chargemanager.ini", "localcontroller=1\n");
    _files.write("platform.conf", "serialno=RIG\n");
}

MeterdRig::~MeterdRig()
{
    _meterd.terminate();
    _meterd.waitForFinished();
}

bool MeterdRig::start(const QStringList &extraEnvironment)
{
    if (!_bus.isReady())
        return false;

    const QString device = _files.path("ttyModbusExt");
    if (!_simulator.start(device, _networkMeters))
        return false;

    QProcessEnvironment environment = _files.daemonEnvironment(_bus.address(), _notify.path());
    environment.insert("CM_MODBUS_EXT_DEVICE", device);
    for (const QString &setting : extraEnvironment)
        environment.insert(setting.section('=', 0, 0), setting.section('=', 1));
    _meterd.setProcessEnvironment(environment);
    _meterd.setStandardErrorFile(_files.path("meterd.log"));
    _meterd.start(_daemonBinary, {});
    if (!_meterd.waitForStarted() || !_notify.receive(10000).startsWith("READY=1"))
        return false;
    _notify.keepDraining();
    return true;
}

bool MeterdRig::daemonRunning()
{
    _meterd.waitForFinished(0);
    return _meterd.state() == QProcess::Running;
}

QString MeterdRig::daemonLog() const
{
    QFile log(_files.path("meterd.log"));
    return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
}

bool MeterdRig::waitConnected(const QStringList &paths) const
{
    for (int waited = 0; waited < 300; ++waited) {
        bool all = true;
        for (const QString &path : paths)
            all = all && busctl("metervalues", "s", { path }).contains("Connected");
        if (all)
            return true;
        QThread::msleep(100);
    }
    return false;
}

QString MeterdRig::busctl(
    const QString &method, const QString &signature, const QStringList &arguments) const
{
    QStringList command { "--address=" + _bus.address(), "call", "com.ovra.slavecontroller",
        "/MeasurementManager", "com.ovra.slavecontroller.MeasurementManager", method };
    if (!signature.isEmpty())
        command << signature << arguments;
    QProcess busctl;
    busctl.start("busctl", command);
    busctl.waitForFinished(30000);
    return QString::fromUtf8(busctl.readAllStandardOutput() + busctl.readAllStandardError())
        .trimmed();
}
