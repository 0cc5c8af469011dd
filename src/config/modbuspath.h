#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

namespace ModbusChannel {
Q_NAMESPACE
// The number written in a path differs from the enum value on purpose: path number 1 is the
// External channel and path number 2 the Internal one. Configuration in the field relies on it.
enum Channel { Internal = 0, External = 1, Invalid = 2 };
Q_ENUM_NS(Channel)
}
using Channel = ModbusChannel::Channel;

// A Modbus RTU unit: the RS-485 channel it is wired to and its slave address there.
struct ModbusPath
{
    Channel channel = Channel::Invalid;
    quint8 address = 0;

    static bool validPathString(const QString &path);
    static ModbusPath fromPathString(const QString &path);
    QString toString() const;

    static int pathNumber(Channel channel);
    static QString channelName(Channel channel);

    friend bool operator==(const ModbusPath &a, const ModbusPath &b)
    {
        return a.channel == b.channel && a.address == b.address;
    }
};
Q_DECLARE_METATYPE(ModbusPath)
