#pragma once

#include <QString>

// A meter path as the measurement service takes it: "modbus/CHANNEL/ADDRESS" for an RS-485
// meter, "modbus/IP-ADDRESS" for a Modbus TCP meter.
class MeterPath
{
public:
    static bool isWellFormed(const QString &path);
    // One spelling per meter ("modbus/01/007" is "modbus/1/7"), so that a typed path can be
    // matched against the configured ones. Only for well-formed paths.
    static QString canonical(const QString &path);

private:
    static bool _isRtu(const QString &path);
    static bool _isTcp(const QString &path);
};
