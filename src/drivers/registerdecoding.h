#pragma once

#include <QString>
#include <QtGlobal>

// Decoding of raw Modbus register words as the meters lay them out. Pure functions: the words
// come straight from the wire and any value is valid input.
namespace RegisterDecoding {

// Two registers, less significant word at the lower address, as a signed 32-bit value.
qint32 int32LswFirst(const quint16 *words);
// Two registers, more significant word at the lower address, as a signed 32-bit value.
qint32 int32MswFirst(const quint16 *words);
qint16 int16(quint16 word);
// IEEE-754 values whose most significant word comes first, as Siemens meters send them: two
// registers for a single, four for a double.
float float32MswFirst(const quint16 *words);
double float64MswFirst(const quint16 *words);
// Text stored one character per byte, each register's low byte first. Zero bytes are padding
// and are dropped; at most maxBytes bytes of the registers are taken.
QString serialFromRegisters(const quint16 *words, int count, int maxBytes);
// Text stored one character per byte, each register's high byte (the one sent first) first.
// Zero bytes are padding and are dropped.
QString textHighByteFirst(const quint16 *words, int count);
// Firmware version packed as major and minor nibbles in the high byte, patch in the low byte:
// 0x1203 is "v1.2.3".
QString nibbleVersion(quint16 word);

// ISKRA packed values, two registers with the more significant word first: a mantissa in bits
// 0-23 times ten to the power of the signed exponent in bits 24-31. Format A has an unsigned
// mantissa, format B a signed one: 0xFE0004D2 is 1234 x 10^-2 in format A.
double packedFormatA(const quint16 *words);
double packedFormatB(const quint16 *words);
// ISKRA power factor, two registers with the more significant word first: the signs of import
// and of the load's character sit in the high word, the magnitude x 10^4 in the low word.
double packedPowerFactor(const quint16 *words);

} // namespace RegisterDecoding
