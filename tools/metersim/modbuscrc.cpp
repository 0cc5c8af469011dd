#include "modbuscrc.h"

namespace ModbusCrc {

namespace {
    constexpr quint16 Polynomial = 0xA001; // 0x8005 reflected
    constexpr qsizetype CrcSize = 2;
    constexpr qsizetype MinimumFrame = 2 + CrcSize; // slave id, function code
}

quint16 compute(QByteArrayView data)
{
    quint16 crc = 0xFFFF;
    for (const char byte : data) {
        crc ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ Polynomial : crc >> 1;
    }
    return crc;
}

bool matches(QByteArrayView frame)
{
    if (frame.size() < MinimumFrame)
        return false;
    const quint16 crc = compute(frame.first(frame.size() - CrcSize));
    const auto low = static_cast<quint8>(frame[frame.size() - 2]);
    const auto high = static_cast<quint8>(frame[frame.size() - 1]);
    return crc == (low | high << 8);
}

QByteArray appendedTo(QByteArray frame)
{
    const quint16 crc = compute(frame);
    frame.append(static_cast<char>(crc & 0xFF));
    frame.append(static_cast<char>(crc >> 8));
    return frame;
}

}
