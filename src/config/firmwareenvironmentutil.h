#pragma once

#include <QMap>
#include <QString>

// Facts about the unit that the firmware owns rather than the configuration files: the platform
// environment map written at boot and the firmware version.
class FirmwareEnvironmentUtil
{
public:
    static QMap<QString, QString> environmentMap();
    static QString firmwareVersion();
};
