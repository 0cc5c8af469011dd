#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <optional>

// The parts of a request frame (CRC already checked) that answering and logging need.
struct ModbusRequest
{
    quint8 slave = 0;
    quint8 function = 0;
    // Only register reads and single writes carry address and operand (count, or value written).
    bool hasRegisterFields = false;
    quint16 address = 0;
    quint16 operand = 0;

    // An RTU frame: nothing when it is too short to be a request at all.
    static std::optional<ModbusRequest> parse(const QByteArray &frame);
    // The protocol data unit of a request (function code first) for the given unit.
    static std::optional<ModbusRequest> fromPdu(quint8 unit, const QByteArray &pdu);

    QString describe() const;
};
