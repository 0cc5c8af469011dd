#pragma once

#include "settingtypes.h"

#include <QHostAddress>
#include <QVariant>

// The value a setting reads as, with the conversions into the station's enumerations. Bad
// values never throw: each conversion logs and falls back to a fixed value.
class SettingValue
{
public:
    SettingValue() = default;
    SettingValue(const QVariant &value)
        : _value(value)
    {
    }

    const QVariant &variant() const { return _value; }
    bool isValid() const { return _value.isValid(); }

    int toInt() const { return _value.toInt(); }
    bool toBool() const { return _value.toBool(); }
    QString toString() const { return _value.toString(); }
    QHostAddress toHostAddress() const;

    EvseManagerTypes::ConnectorType toConnectorType() const;
    EnergyMeterType toEnergyMeterType() const;
    PlugLockEngine toLockEngineType() const;
    CorvixType toCorvixType() const;
    bool isCxAir() const;

    friend bool operator==(const SettingValue &a, const SettingValue &b)
    {
        return a._value == b._value;
    }

private:
    QVariant _value;
};
