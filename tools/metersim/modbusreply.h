#pragma once

#include <QByteArray>
#include <QtGlobal>

class Meter;
struct ModbusRequest;

// Builds replies: complete RTU frames, CRC included, or the bare protocol data units that Modbus
// TCP puts behind its own header.
namespace ModbusReply {

// What the meter answers to the request when it works properly.
QByteArray to(Meter &meter, const ModbusRequest &request);
QByteArray pdu(Meter &meter, const ModbusRequest &request);

QByteArray exception(const ModbusRequest &request, quint8 code);
QByteArray exceptionPdu(const ModbusRequest &request, quint8 code);

}
