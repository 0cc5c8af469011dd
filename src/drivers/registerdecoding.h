#pragma once

#include <QString>
#include <QtGlobal>

// Decoding of raw Modbus register words as Carlo Gavazzi meters lay them out. Pure functions:
// the words come straight from the wire and any value is valid input.
namespace RegisterDecoding {

// Two registers, less significant word at the lower address, as a signed 32-bit value.
qint32 int32LswFirst(const quint16 *words);
qint16 int16(quint16 word);
// IEEE-754 values whose most significant word comes first, as Siemens meters send them: two
// registers for a single, four for a double.
float float32MswFirst(const quint16 *words);
double float64MswFirst(const quint16 *words);
// Text stored one character per byte, each register's low byte first. Zero bytes are padding
// and are dropped; at most maxBytes bytes of the registers are taken.
QString serialFromRegisters(const quint16 *words, int count, int maxBytes);
// Firmware version packed as major and minor nibbles in the high byte, patch in the low byte:
// 0x1203 is "v1.2.3".
QString nibbleVersion(quint16 word);

} // namespace RegisterDecoding
