#include "testfiles.h"

#include <QFile>

QString TestFiles::write(const QString &name, const QByteArray &content)
{
    QFile file(_dir.filePath(name));
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(content);
    return file.fileName();
}

void TestFiles::useAsConfiguration(const QByteArray &platformIni,
    const QByteArray &chargemanagerIni, const QByteArray &platformConf)
{
    qputenv("CM_PLATFORMINI", write("platform.ini", platformIni).toLocal8Bit());
    qputenv("CM_CHARGEMANAGERCONFIG", write("chargemanager.ini", chargemanagerIni).toLocal8Bit());
    qputenv("CM_PLATFORMCONFIG", write("platform.conf", platformConf).toLocal8Bit());
}

QProcessEnvironment TestFiles::daemonEnvironment(
    const QString &busAddress, const QString &notifyPath) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("NOTIFY_SOCKET", notifyPath);
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
    const QList<std::pair<const char *, const char *>> files { { "CM_PLATFORMINI", "platform.ini" },
        { "CM_CHARGEMANAGERCONFIG", "chargemanager.ini" }, { "CM_PLATFORMCONFIG", "platform.conf" },
        { "CM_CORVIXINI", "corvix.ini" }, { "CM_VERSIONFILE", "version" },
        { "CM_MODBUS_EXT_DEVICE", "ttyModbusExt" }, { "CM_MODBUS_OCU_DEVICE", "ttyModbusOcu" } };
    for (const auto &[variable, name] : files)
        environment.insert(variable, path(name));
    environment.remove("QT_LOGGING_RULES");
    return environment;
}

ScopedEnvironment::ScopedEnvironment(const char *name, const QString &value)
    : _name(name)
    , _wasSet(qEnvironmentVariableIsSet(name))
    , _previous(qgetenv(name))
{
    qputenv(name, value.toLocal8Bit());
}

ScopedEnvironment::~ScopedEnvironment()
{
    if (_wasSet)
        qputenv(_name.constData(), _previous);
    else
        qunsetenv(_name.constData());
}
