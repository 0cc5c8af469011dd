#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QtGlobal>

// CRC-16/MODBUS, which closes every RTU frame, low byte first.
namespace ModbusCrc {

quint16 compute(QByteArrayView data);

// Whether the frame is long enough to carry a CRC and ends in the right one.
bool matches(QByteArrayView frame);

QByteArray appendedTo(QByteArray frame);

}
