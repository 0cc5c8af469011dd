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
