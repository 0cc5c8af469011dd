#pragma once

#include <QByteArray>
#include <QList>
#include <QtGlobal>

// How a meter puts a value into its registers. A value is first scaled to an integer by
// 10^decimals and rounded; the encodings differ in width, range and word order.
namespace RegisterEncoding {

enum Kind {
    Int16, // one register, signed
    Uint16, // one register, unsigned
    Int32LswFirst, // two registers, signed, less significant word first
    Int32MswFirst, // two registers, signed, more significant word first
    // ISKRA packed formats, two registers, more significant word first: a mantissa in bits 0-23
    // times 10 to the power of the signed exponent in bits 24-31, which is -decimals.
    PackedUnsigned, // format A: unsigned mantissa
    PackedSigned, // format B: signed mantissa
    // ISKRA power factor: the magnitude x 10^decimals in the low word, the sign in the high word.
    PackedPowerFactor,
    // IEEE-754 values, more significant word first, as Siemens meters send them; not scaled.
    Float32MswFirst, // two registers
    Float64MswFirst, // four registers
};

int width(Kind kind);

// Whether value survives scaling into the encoding's range.
bool fits(Kind kind, int decimals, double value);

// The registers holding value, lowest address first; saturates, so that a value pushed out of
// range by drift cannot overflow. NaN is stored as 0.
QList<quint16> encode(Kind kind, int decimals, double value);

// Text, two characters per register, zero-padded or cut to the registers given.
enum class TextOrder {
    LowByteFirst, // first character in the low byte, as the older Carlo Gavazzi meters keep it
    HighByteFirst, // first character in the high byte, the one sent first
};
QList<quint16> text(const QByteArray &characters, int registers, TextOrder order);

}
