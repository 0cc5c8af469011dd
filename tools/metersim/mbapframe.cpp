#include "mbapframe.h"

namespace {

quint16 wordAt(const QByteArray &bytes, qsizetype index)
{
    return static_cast<quint16>(
        static_cast<quint8>(bytes[index]) << 8 | static_cast<quint8>(bytes[index + 1]));
}

void appendWord(QByteArray &bytes, quint16 word)
{
    bytes.append(static_cast<char>(word >> 8));
    bytes.append(static_cast<char>(word & 0xFF));
}

}

// The length field counts the unit id and the PDU.
std::optional<MbapFrame> MbapFrame::take(QByteArray &buffer)
{
    if (buffer.size() < HeaderSize)
        return std::nullopt;
    const qsizetype length = wordAt(buffer, 4);
    if (buffer.size() < HeaderSize - 1 + length)
        return std::nullopt;
    MbapFrame frame;
    frame.transaction = wordAt(buffer, 0);
    frame.unit = static_cast<quint8>(buffer[6]);
    frame.pdu = length > 1 ? buffer.mid(HeaderSize, length - 1) : QByteArray();
    buffer.remove(0, HeaderSize - 1 + qMax<qsizetype>(length, 1));
    return frame;
}

QByteArray MbapFrame::encoded() const
{
    QByteArray bytes;
    appendWord(bytes, transaction);
    appendWord(bytes, 0);
    appendWord(bytes, static_cast<quint16>(pdu.size() + 1));
    bytes.append(static_cast<char>(unit));
    return bytes + pdu;
}
