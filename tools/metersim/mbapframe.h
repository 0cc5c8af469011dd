#pragma once

#include <QByteArray>
#include <QtGlobal>
#include <optional>

// A Modbus TCP frame: the MBAP header (transaction id, protocol 0, length, unit id) and the
// protocol data unit behind it.
struct MbapFrame
{
    static constexpr qsizetype HeaderSize = 7;

    quint16 transaction = 0;
    quint8 unit = 0;
    QByteArray pdu;

    // Takes one complete frame off the front of the buffer; nothing while it is incomplete.
    static std::optional<MbapFrame> take(QByteArray &buffer);
    QByteArray encoded() const;
};
