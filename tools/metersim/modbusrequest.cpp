#include "modbusrequest.h"

#include <modbus.h>

namespace {

constexpr qsizetype MinimumFrame = 4; // slave id, function code, CRC
constexpr qsizetype CrcSize = 2;
constexpr qsizetype RegisterPduSize = 5; // function code, address, operand

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
    return fromPdu(static_cast<quint8>(frame[0]), frame.sliced(1, frame.size() - 1 - CrcSize));
}

std::optional<ModbusRequest> ModbusRequest::fromPdu(quint8 unit, const QByteArray &pdu)
{
    if (pdu.isEmpty())
        return std::nullopt;
    ModbusRequest request;
    request.slave = unit;
    request.function = static_cast<quint8>(pdu[0]);
    if (carriesRegisterFields(request.function) && pdu.size() == RegisterPduSize) {
        request.hasRegisterFields = true;
        request.address = wordAt(pdu, 1);
        request.operand = wordAt(pdu, 3);
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
