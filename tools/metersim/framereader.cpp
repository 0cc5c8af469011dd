#include "framereader.h"

#include "logging.h"
#include "modbuscrc.h"

#include <modbus.h>
#include <utility>

namespace {

// 3.5 characters of 11 bits at 9600 baud are 4 ms.
constexpr int SilenceMilliseconds = 4;
constexpr qsizetype MaximumFrame = MODBUS_RTU_MAX_ADU_LENGTH;
// Length of a frame whose function code does not tell it: only silence ends it.
constexpr qsizetype UntilSilence = 0;
constexpr qsizetype FixedRequestSize = 8; // id, function, address, count or value, CRC
constexpr qsizetype ByteCountIndex = 6;
constexpr qsizetype MultipleWriteOverhead = 9; // id, function, address, count, byte count, CRC

}

FrameReader::FrameReader(QObject *parent)
    : QObject(parent)
{
    _silence.setSingleShot(true);
    _silence.setTimerType(Qt::PreciseTimer);
    _silence.setInterval(SilenceMilliseconds);
    connect(&_silence, &QTimer::timeout, this, &FrameReader::onSilence);
}

void FrameReader::feed(const QByteArray &bytes)
{
    _silence.start();
    if (_discarding)
        return;
    _buffer += bytes;
    extractFrames();
    if (_buffer.size() > MaximumFrame) {
        qCDebug(lcMeterSim) << "dropping" << _buffer.size() << "bytes without a frame end";
        discardUntilSilence();
    }
}

// Nothing while more bytes are needed to tell.
std::optional<qsizetype> FrameReader::expectedLength() const
{
    if (_buffer.size() < 2)
        return std::nullopt;
    switch (static_cast<quint8>(_buffer[1])) {
    case MODBUS_FC_READ_COILS:
    case MODBUS_FC_READ_DISCRETE_INPUTS:
    case MODBUS_FC_READ_HOLDING_REGISTERS:
    case MODBUS_FC_READ_INPUT_REGISTERS:
    case MODBUS_FC_WRITE_SINGLE_COIL:
    case MODBUS_FC_WRITE_SINGLE_REGISTER:
        return FixedRequestSize;
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        if (_buffer.size() <= ByteCountIndex)
            return std::nullopt;
        return MultipleWriteOverhead + static_cast<quint8>(_buffer[ByteCountIndex]);
    default:
        return UntilSilence;
    }
}

void FrameReader::extractFrames()
{
    while (true) {
        const auto length = expectedLength();
        // A byte count that no request can have: the frame would not fit in an RTU frame.
        if (length && *length > MaximumFrame) {
            qCDebug(lcMeterSim) << "dropping frame of" << *length
                                << "bytes, longer than RTU allows";
            discardUntilSilence();
            return;
        }
        if (!length || *length == UntilSilence || _buffer.size() < *length)
            return;
        const QByteArray frame = _buffer.left(*length);
        if (!ModbusCrc::matches(frame)) {
            qCDebug(lcMeterSim).noquote() << "dropping frame with bad CRC:" << frame.toHex(' ');
            discardUntilSilence();
            return;
        }
        _buffer.remove(0, *length);
        emit frameReceived(frame);
    }
}

// Like a real slave, after garbage wait for the line to go quiet before looking for a frame.
void FrameReader::discardUntilSilence()
{
    _buffer.clear();
    _discarding = true;
}

void FrameReader::onSilence()
{
    const bool complete = expectedLength() == UntilSilence && ModbusCrc::matches(_buffer);
    const QByteArray rest = std::exchange(_buffer, {});
    _discarding = false;
    if (complete)
        emit frameReceived(rest);
    else if (!rest.isEmpty())
        qCDebug(lcMeterSim).noquote() << "dropping incomplete frame:" << rest.toHex(' ');
}
