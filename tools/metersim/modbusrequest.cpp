#include "modbusrequest.h"

#include <modbus.h>

namespace {

constexpr qsizetype MinimumFrame = 4; // slave id, function code, CRC
constexpr qsizetype RegisterRequestSize = 8;

bool carriesRegisterFields(quint8 function)
{
    return function == MODBUS_FC_READ_HOLDING_REGISTERS
        || function == MODBUS_FC_READ_INPUT_REGISTERS
        || function == MODBUS_FC_WRITE_SINGLE_REGISTER;
}

quint16 wordAt(const QByteArray &frame, qsizetype index)
{
    return static_cast<quint16>(
        static_cast<quint8>(frame[index]) << 8 | static_cast<quint8>(frame[index + 1]));
}

}

std::optional<ModbusRequest> ModbusRequest::parse(const QByteArray &frame)
{
    if (frame.size() < MinimumFrame)
        return std::nullopt;
    ModbusRequest request;
    request.slave = static_cast<quint8>(frame[0]);
    request.function = static_cast<quint8>(frame[1]);
    if (carriesRegisterFields(request.function) && frame.size() == RegisterRequestSize) {
        request.hasRegisterFields = true;
        request.address = wordAt(frame, 2);
        request.operand = wordAt(frame, 4);
    }
    return request;
}

QString ModbusRequest::describe() const
{
    const QString who = QStringLiteral("slave %1 function 0x%2")
                            .arg(slave)
                            .arg(function, 2, 16, QLatin1Char('0'));
    if (!hasRegisterFields)
        return who;
    const QString operandName = function == MODBUS_FC_WRITE_SINGLE_REGISTER
        ? QStringLiteral("value")
        : QStringLiteral("count");
    return QStringLiteral("%1 address %2 %3 %4")
        .arg(who)
        .arg(address)
        .arg(operandName)
        .arg(operand);
}
