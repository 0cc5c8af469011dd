#include "registerdecoding.h"

#include <bit>
#include <cmath>

namespace {

quint32 uint32MswFirst(const quint16 *words)
{
    return (quint32(words[0]) << 16) | words[1];
}

// Dividing by a power of ten rather than multiplying by its inverse keeps 1234 x 10^-2 at 12.34
// exactly as a double would print it.
double scaledByPowerOfTen(double mantissa, int exponent)
{
    const double power = std::pow(10.0, std::abs(exponent));
    return exponent < 0 ? mantissa / power : mantissa * power;
}

int packedExponent(quint32 value)
{
    return qint8(quint8(value >> 24));
}

} // namespace

namespace RegisterDecoding {

qint32 int32LswFirst(const quint16 *words)
{
    return qint32((quint32(words[1]) << 16) | words[0]);
}

qint32 int32MswFirst(const quint16 *words)
{
    return qint32(uint32MswFirst(words));
}

qint16 int16(quint16 word)
{
    return qint16(word);
}

float float32MswFirst(const quint16 *words)
{
    return std::bit_cast<float>(uint32MswFirst(words));
}

double float64MswFirst(const quint16 *words)
{
    quint64 bits = 0;
    for (int i = 0; i < 4; ++i)
        bits = (bits << 16) | words[i];
    return std::bit_cast<double>(bits);
}

QString serialFromRegisters(const quint16 *words, int count, int maxBytes)
{
    const int bytes = qMin(qMax(count, 0) * 2, maxBytes);
    QString text;
    for (int i = 0; i < bytes; ++i) {
        const quint16 word = words[i / 2];
        const auto byte = quint8(i % 2 == 0 ? word & 0xFF : word >> 8);
        if (byte != 0)
            text.append(QChar::fromLatin1(char(byte)));
    }
    return text;
}

QString textHighByteFirst(const quint16 *words, int count)
{
    QString text;
    for (int i = 0; i < count; ++i) {
        for (const auto byte : { quint8(words[i] >> 8), quint8(words[i] & 0xFF) }) {
            if (byte != 0)
                text.append(QChar::fromLatin1(char(byte)));
        }
    }
    return text;
}

QString nibbleVersion(quint16 word)
{
    return QStringLiteral("v%1.%2.%3").arg(word >> 12).arg((word >> 8) & 0x0F).arg(word & 0xFF);
}

double packedFormatA(const quint16 *words)
{
    const quint32 value = uint32MswFirst(words);
    return scaledByPowerOfTen(double(value & 0xFFFFFF), packedExponent(value));
}

double packedFormatB(const quint16 *words)
{
    const quint32 value = uint32MswFirst(words);
    // Shifting the 24-bit mantissa to the top and back extends its sign.
    const qint32 mantissa = qint32(value << 8) >> 8;
    return scaledByPowerOfTen(double(mantissa), packedExponent(value));
}

double packedPowerFactor(const quint16 *words)
{
    return double(uint32MswFirst(words) & 0xFFFF) / 10000.0;
}

} // namespace RegisterDecoding
