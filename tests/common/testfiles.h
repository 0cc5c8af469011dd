#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

// A temporary directory of configuration files for one test.
class TestFiles
{
public:
    QString write(const QString &name, const QByteArray &content);
    QString path(const QString &name) const { return _dir.filePath(name); }
    // Writes platform.ini, chargemanager.ini and platform.conf and points the daemon's variables
    // at them for the rest of the process.
    void useAsConfiguration(const QByteArray &platformIni, const QByteArray &chargemanagerIni,
        const QByteArray &platformConf = QByteArray(""));
    // The environment of a meterd started by a test: every configuration file and serial device
    // in this directory (platform.ini, chargemanager.ini, platform.conf, corvix.ini, version,
    // ttyModbusExt, ttyModbusOcu), the given bus and notification socket, no narrowed logging.
    QProcessEnvironment daemonEnvironment(
        const QString &busAddress, const QString &notifyPath) const;

private:
    QTemporaryDir _dir;
};

// Sets an environment variable for the lifetime of the object and restores it afterwards.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char *name, const QString &value);
    ~ScopedEnvironment();

private:
    QByteArray _name;
    bool _wasSet;
    QByteArray _previous;
};
