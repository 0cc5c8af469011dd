#include "registerencoding.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace RegisterEncoding {

namespace {

    constexpr qint64 Int24Min = -(qint64(1) << 23);
    constexpr qint64 Int24Max = (qint64(1) << 23) - 1;
    constexpr qint64 Uint24Max = (qint64(1) << 24) - 1;

    struct Range
    {
        double lowest;
        double highest;
    };

    Range rangeOf(Kind kind)
    {
        switch (kind) {
        case Int16:
            return { std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max() };
        case Uint16:
            return { 0, std::numeric_limits<quint16>::max() };
        case Int32LswFirst:
        case Int32MswFirst:
            return { std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max() };
        case PackedUnsigned:
            return { 0, Uint24Max };
        case PackedSigned:
            return { Int24Min, Int24Max };
        case PackedPowerFactor:
            return { -double(std::numeric_limits<quint16>::max()),
                std::numeric_limits<quint16>::max() };
        case Float32MswFirst:
            return { std::numeric_limits<float>::lowest(), std::numeric_limits<float>::max() };
        case Float64MswFirst:
            return { std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max() };
        }
        Q_UNREACHABLE();
    }

    bool isFloat(Kind kind)
    {
        return kind == Float32MswFirst || kind == Float64MswFirst;
    }

    double scaled(Kind kind, int decimals, double value)
    {
        return isFloat(kind) ? value : std::round(value * std::pow(10.0, decimals));
    }

    QList<quint16> wordsMswFirst(quint64 bits, int words)
    {
        QList<quint16> result;
        for (int index = words - 1; index >= 0; --index)
            result.append(static_cast<quint16>(bits >> (16 * index)));
        return result;
    }

    QList<quint16> lowWordFirst(quint32 raw)
    {
        return { static_cast<quint16>(raw), static_cast<quint16>(raw >> 16) };
    }

    QList<quint16> highWordFirst(quint32 raw)
    {
        return { static_cast<quint16>(raw >> 16), static_cast<quint16>(raw) };
    }

    quint32 packed(qint64 mantissa, int decimals)
    {
        const auto exponent = static_cast<quint8>(static_cast<qint8>(-decimals));
        return quint32(exponent) << 24 | (static_cast<quint32>(mantissa) & Uint24Max);
    }

}

int width(Kind kind)
{
    if (kind == Float64MswFirst)
        return 4;
    return kind == Int16 || kind == Uint16 ? 1 : 2;
}

bool fits(Kind kind, int decimals, double value)
{
    const double raw = scaled(kind, decimals, value);
    const Range range = rangeOf(kind);
    return std::isfinite(raw) && raw >= range.lowest && raw <= range.highest;
}

QList<quint16> encode(Kind kind, int decimals, double value)
{
    if (kind == Float32MswFirst)
        return wordsMswFirst(std::bit_cast<quint32>(float(value)), 2);
    if (kind == Float64MswFirst)
        return wordsMswFirst(std::bit_cast<quint64>(value), 4);
    const Range range = rangeOf(kind);
    const auto raw = std::isnan(value)
        ? qint64(0)
        : static_cast<qint64>(
            std::clamp(scaled(kind, decimals, value), range.lowest, range.highest));
    switch (kind) {
    case Int16:
    case Uint16:
        return { static_cast<quint16>(raw) };
    case Int32LswFirst:
        return lowWordFirst(static_cast<quint32>(raw));
    case Int32MswFirst:
        return highWordFirst(static_cast<quint32>(raw));
    case PackedUnsigned:
    case PackedSigned:
        return highWordFirst(packed(raw, decimals));
    case PackedPowerFactor:
        return { static_cast<quint16>(raw < 0 ? 0xFFFF : 0), static_cast<quint16>(std::abs(raw)) };
    case Float32MswFirst:
    case Float64MswFirst:
        break;
    }
    Q_UNREACHABLE();
}

QList<quint16> text(const QByteArray &characters, int registers, TextOrder order)
{
    const QByteArray padded = characters.leftJustified(registers * 2, '\0', true);
    QList<quint16> words;
    for (int index = 0; index < registers; ++index) {
        const auto first = static_cast<quint8>(padded[index * 2]);
        const auto second = static_cast<quint8>(padded[index * 2 + 1]);
        words.append(order == TextOrder::LowByteFirst ? static_cast<quint16>(first | second << 8)
                                                      : static_cast<quint16>(first << 8 | second));
    }
    return words;
}

}
