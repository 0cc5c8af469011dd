#pragma once

#include "requiredmodbusmeter.h"
#include "setting.h"
#include "settingvalue.h"

#include <QList>
#include <QMap>
#include <QObject>

class QSettings;

// The single reader of the unit's configuration: platform.ini (hardware, written at
// production), chargemanager.ini (the operator's settings) and the firmware environment.
// A unit whose INI files cannot be read is taken to be on the production line (PTS mode).
class ConfigurationManager : public QObject
{
    Q_OBJECT

public:
    explicit ConfigurationManager(QObject *parent = nullptr);

    bool isPtsMode() const { return _ptsMode; }

    SettingValue value(Setting setting) const;
    int intValue(Setting setting) const { return value(setting).toInt(); }
    bool boolValue(Setting setting) const { return value(setting).toBool(); }

    SettingValue vendor() const;
    SettingValue model() const;
    SettingValue modelVersion() const;

    SettingValue chargeModePriority(quint32 outlet) const;
    SettingValue evseId(quint32 outlet) const;
    SettingValue plcModem(quint32 outlet) const;
    SettingValue plcCapable(quint32 outlet) const;

    QList<RequiredModbusMeter> requiredModbusMeters() const;
    QList<QString> requiredTCPModbusMeters() const;

private:
    bool _readPlatformIni();
    bool _readChargemanagerIni();
    SettingValue _readVirtualSetting(Setting setting) const;
    SettingValue _outletValue(quint32 outlet, const char *suffix) const;
    SettingValue _environmentOrPlatform(
        const QString &environmentKey, const QString &platformKey) const;

    bool _ptsMode = false;
    QSettings *_chargemanagerSettings = nullptr;
    QSettings *_platformSettings = nullptr;
    QMap<QString, QString> _environment;
};
