#include "modbuspath.h"

#include <QDebug>
#include <QMetaEnum>

namespace {

const char *const validSignature = "static bool ModbusPath::validPathString(const QString&)";
const char *const fromSignature = "static ModbusPath ModbusPath::fromPathString(const QString&)";

constexpr int externalPathNumber = 1;
constexpr int internalPathNumber = 2;

} // namespace

bool ModbusPath::validPathString(const QString &path)
{
    if (!path.startsWith(QLatin1String("modbus"))) {
        qCritical() << validSignature << "Invalid format:" << path;
        return false;
    }
    const QStringList parts = path.split(QLatin1Char('/'));
    if (parts.size() != 3) {
        qCritical() << validSignature << "Invalid format:" << path;
        return false;
    }

    bool isNumber = false;
    const int channel = parts.at(1).toInt(&isNumber);
    if (!isNumber) {
        qCritical() << validSignature << parts.at(1) << " is not a number";
        return false;
    }
    if (channel != externalPathNumber && channel != internalPathNumber) {
        qCritical() << validSignature << parts.at(1) << " is not a valid channel";
        return false;
    }

    const int address = parts.at(2).toInt(&isNumber);
    if (!isNumber) {
        qCritical() << validSignature << parts.at(2) << " is not a number";
        return false;
    }
    if (address < 1 || address > 255) {
        qCritical() << validSignature << parts.at(2) << " is not a valid address";
        return false;
    }
    return true;
}

ModbusPath ModbusPath::fromPathString(const QString &path)
{
    if (!validPathString(path)) {
        qCritical() << fromSignature << "Invalid path used! Expect trouble";
        return {};
    }
    const QStringList parts = path.split(QLatin1Char('/'));
    switch (parts.at(1).toInt()) {
    case externalPathNumber:
        return { Channel::External, quint8(parts.at(2).toInt()) };
    case internalPathNumber:
        return { Channel::Internal, quint8(parts.at(2).toInt()) };
    default:
        qCritical() << fromSignature << "Invalid channel detected! Expect trouble";
        return {};
    }
}

QString ModbusPath::toString() const
{
    const int number = pathNumber(channel);
    if (number == 0)
        return QString();
    return QStringLiteral("modbus/%1/%2").arg(number).arg(address);
}

int ModbusPath::pathNumber(Channel channel)
{
    switch (channel) {
    case Channel::External:
        return externalPathNumber;
    case Channel::Internal:
        return internalPathNumber;
    case Channel::Invalid:
        break;
    }
    return 0;
}

QString ModbusPath::channelName(Channel channel)
{
    return QString::fromLatin1(QMetaEnum::fromType<Channel>().valueToKey(channel));
}
