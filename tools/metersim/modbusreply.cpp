#include "modbusreply.h"

#include "meter.h"
#include "modbuscrc.h"
#include "modbusrequest.h"

#include <modbus.h>

namespace ModbusReply {

namespace {

    constexpr quint8 ExceptionFlag = 0x80;

    QByteArray frame(quint8 slave, const QByteArray &pdu)
    {
        return ModbusCrc::appendedTo(QByteArray(1, static_cast<char>(slave)) + pdu);
    }

    void appendWord(QByteArray &pdu, quint16 word)
    {
        pdu.append(static_cast<char>(word >> 8));
        pdu.append(static_cast<char>(word & 0xFF));
    }

    // Count limits answer "illegal data address" like the meters do, not "illegal data value".
    QByteArray readRegisters(const Meter &meter, const ModbusRequest &request)
    {
        const int count = request.operand;
        if (count < 1 || count > MODBUS_MAX_READ_REGISTERS)
            return exceptionPdu(request, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS);
        const auto registers = meter.read(request.function, request.address, count);
        if (!registers)
            return exceptionPdu(request, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS);
        QByteArray pdu;
        pdu.append(static_cast<char>(request.function));
        pdu.append(static_cast<char>(count * 2));
        for (const quint16 word : *registers)
            appendWord(pdu, word);
        return pdu;
    }

    // A successful single write is answered with an echo of the request.
    QByteArray writeRegister(Meter &meter, const ModbusRequest &request)
    {
        if (!meter.write(request.address, request.operand))
            return exceptionPdu(request, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS);
        QByteArray pdu;
        pdu.append(static_cast<char>(request.function));
        appendWord(pdu, request.address);
        appendWord(pdu, request.operand);
        return pdu;
    }

}

// A frame of a supported function with the wrong length can only come from a broken master.
QByteArray pdu(Meter &meter, const ModbusRequest &request)
{
    const bool reads = request.function == MODBUS_FC_READ_HOLDING_REGISTERS
        || request.function == MODBUS_FC_READ_INPUT_REGISTERS;
    const bool writes = request.function == MODBUS_FC_WRITE_SINGLE_REGISTER;
    if (!reads && !writes)
        return exceptionPdu(request, MODBUS_EXCEPTION_ILLEGAL_FUNCTION);
    if (!request.hasRegisterFields)
        return exceptionPdu(request, MODBUS_EXCEPTION_ILLEGAL_DATA_VALUE);
    return writes ? writeRegister(meter, request) : readRegisters(meter, request);
}

QByteArray exceptionPdu(const ModbusRequest &request, quint8 code)
{
    QByteArray pdu;
    pdu.append(static_cast<char>(request.function | ExceptionFlag));
    pdu.append(static_cast<char>(code));
    return pdu;
}

QByteArray to(Meter &meter, const ModbusRequest &request)
{
    return frame(request.slave, pdu(meter, request));
}

QByteArray exception(const ModbusRequest &request, quint8 code)
{
    return frame(request.slave, exceptionPdu(request, code));
}

}
