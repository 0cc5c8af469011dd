#include "settingvalue.h"

#include <QDebug>

QHostAddress SettingValue::toHostAddress() const
{
    return QHostAddress(toString());
}

EvseManagerTypes::ConnectorType SettingValue::toConnectorType() const
{
    const int number = toInt();
    if (number < EvseManagerTypes::Schuko || number > EvseManagerTypes::MennekesOutlet) {
        qCritical() << "EvseManagerTypes::ConnectorType SettingValue::toConnectorType() const"
                    << "Invalid connector type:" << number;
        return EvseManagerTypes::Schuko;
    }
    return EvseManagerTypes::ConnectorType(number);
}

EnergyMeterType SettingValue::toEnergyMeterType() const
{
    // A value that is no number reads as 0 but a number out of range as "no meter": other
    // services rely on this difference.
    bool isNumber = false;
    const int number = _value.toInt(&isNumber);
    if (!isNumber) {
        qCritical() << "EnergyMeterType SettingValue::toEnergyMeterType() const"
                    << "Unknown energy meter type:" << toString();
        return 0;
    }
    if (number < EnergyMeterTypes::Lowest || number > EnergyMeterTypes::Highest) {
        qCritical() << "EnergyMeterType SettingValue::toEnergyMeterType() const"
                    << "Unknown energy meter type:" << number;
        return EnergyMeterTypes::NoMeter;
    }
    return number;
}

PlugLockEngine SettingValue::toLockEngineType() const
{
    bool isNumber = false;
    const int number = _value.toInt(&isNumber);
    if (!isNumber) {
        qCritical() << "PlugLockEngine SettingValue::toLockEngineType() const"
                    << "Unknown lock type:" << toString();
        return 0;
    }
    if (number < PlugLockEngines::Lowest || number > PlugLockEngines::Highest) {
        qCritical() << "PlugLockEngine SettingValue::toLockEngineType() const"
                    << "Unknown lock type:" << number;
        return 0;
    }
    return number;
}

CorvixType SettingValue::toCorvixType() const
{
    const int number = toInt();
    if (number < CorvixTypes::NoLocalGrid || number > CorvixTypes::HomeMeter) {
        qCritical() << "CorvixType SettingValue::toCorvixType() const"
                    << "Invalid parameter for CorvixType: " << number;
        return CorvixTypes::NoLocalGrid;
    }
    return CorvixType(number);
}

bool SettingValue::isCxAir() const
{
    return toString().toLower() == QLatin1String("cxair");
}
