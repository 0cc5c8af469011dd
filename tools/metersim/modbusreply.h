#pragma once

#include <QByteArray>
#include <QtGlobal>

class Meter;
struct ModbusRequest;

// Builds complete RTU reply frames, CRC included.
namespace ModbusReply {

// What the meter answers to the request when it works properly.
QByteArray to(Meter &meter, const ModbusRequest &request);

QByteArray exception(const ModbusRequest &request, quint8 code);

}
