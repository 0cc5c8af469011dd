#include "registerdecoding.h"

#include <bit>

namespace RegisterDecoding {

qint32 int32LswFirst(const quint16 *words)
{
    return qint32((quint32(words[1]) << 16) | words[0]);
}

qint16 int16(quint16 word)
{
    return qint16(word);
}

float float32MswFirst(const quint16 *words)
{
    return std::bit_cast<float>((quint32(words[0]) << 16) | words[1]);
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

QString nibbleVersion(quint16 word)
{
    return QStringLiteral("v%1.%2.%3").arg(word >> 12).arg((word >> 8) & 0x0F).arg(word & 0xFF);
}

} // namespace RegisterDecoding
