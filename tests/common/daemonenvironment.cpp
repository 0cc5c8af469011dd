#include "daemonenvironment.h"

#include "testfiles.h"

QProcessEnvironment daemonEnvironment(
    const TestFiles &files, const QString &busAddress, const QString &notifyPath)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("NOTIFY_SOCKET", notifyPath);
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
    environment.insert("CM_PLATFORMINI", files.path("platform.ini"));
    environment.insert("CM_CHARGEMANAGERCONFIG", files.path("chargemanager.ini"));
    environment.insert("CM_PLATFORMCONFIG", files.path("platform.conf"));
    environment.insert("CM_CORVIXINI", files.path("corvix.ini"));
    environment.insert("CM_VERSIONFILE", files.path("version"));
    environment.insert("CM_MODBUS_EXT_DEVICE", files.path("ttyModbusExt"));
    environment.insert("CM_MODBUS_OCU_DEVICE", files.path("ttyModbusOcu"));
    environment.remove("QT_LOGGING_RULES");
    return environment;
}
