#include "modbusdeviceidentification.h"

#include "driverlogging.h"

#include <QHostAddress>

namespace {

constexpr quint16 modbusTcpPort = 502;
constexpr int exchangeTimeoutMs = 1000;

constexpr quint8 transactionHigh = 0xAB;
constexpr quint8 transactionLow = 0xCD;
constexpr qsizetype minimumResponseSize = 7;
constexpr quint8 minimumLength = 8;
constexpr quint8 moreFollowsRefused = 0xFF;

// Offsets in the response: MBAP header, then function, MEI type, read code, conformity level.
constexpr qsizetype lengthLowByte = 5;
constexpr qsizetype moreFollowsByte = 11;
constexpr qsizetype nextObjectIdByte = 12;
constexpr qsizetype objectCountByte = 13;
constexpr qsizetype firstObjectByte = 14;

quint8 byteAt(const QByteArray &bytes, qsizetype index)
{
    return index < bytes.size() ? quint8(bytes.at(index)) : 0;
}

} // namespace

ModbusDeviceIdentification::ModbusDeviceIdentification(const QString &ipAddress, QObject *parent)
    : QObject(parent)
    , _ipAddress(ipAddress)
    , _socket(new QTcpSocket(this))
{
    connect(_socket, &QTcpSocket::connected, this, &ModbusDeviceIdentification::_connected);
    connect(_socket, &QTcpSocket::disconnected, this, &ModbusDeviceIdentification::_disconnected);
    connect(_socket, &QTcpSocket::stateChanged, this, &ModbusDeviceIdentification::_stateChanged);
    if (_socket->state() != QAbstractSocket::ConnectedState) {
        qCInfo(lcModbusDeviceInfo) << "ModbusDeviceIdentification"
                                   << "connecting to" << _ipAddress;
        _socket->connectToHost(QHostAddress(_ipAddress), modbusTcpPort, QIODevice::ReadWrite);
    }
}

QString ModbusDeviceIdentification::objectName(quint8 objectId)
{
    switch (objectId) {
    case 0:
        return QStringLiteral("VendorName");
    case 1:
        return QStringLiteral("ProductCode");
    case 2:
        return QStringLiteral("MajorMinorRevision");
    default:
        return QStringLiteral("Unknown");
    }
}

QByteArray ModbusDeviceIdentification::request()
{
    // Transaction id, protocol 0, five bytes follow: unit 0xFF, Encapsulated Interface Transport,
    // Read Device Identification, basic objects, starting at object 0.
    static const char bytes[] = { char(transactionHigh), char(transactionLow), 0x00, 0x00, 0x00,
        0x05, char(0xFF), 0x2B, 0x0E, 0x01, 0x00 };
    return QByteArray(bytes, sizeof(bytes));
}

bool ModbusDeviceIdentification::parseResponse(const QByteArray &response)
{
    _response = response;
    return _parseResponse();
}

void ModbusDeviceIdentification::_connected()
{
    qCDebug(lcModbusDeviceInfo) << __func__ << "connected to" << _ipAddress;
    _state = IdentificationState(1 + int(_retrieve()));
    _socket->disconnectFromHost();
}

bool ModbusDeviceIdentification::_retrieve()
{
    qCWarning(lcModbusDeviceInfo) << __func__ << "attempting to retrieve device identification from"
                                  << _ipAddress;
    _socket->write(request());
    if (!_socket->waitForBytesWritten(exchangeTimeoutMs)) {
        qCWarning(lcModbusDeviceInfo) << __func__ << "failed to send request to" << _ipAddress;
        return false;
    }
    if (!_socket->waitForReadyRead(exchangeTimeoutMs)) {
        qCWarning(lcModbusDeviceInfo) << __func__ << "failed to get response from" << _ipAddress;
        return false;
    }
    _response = _socket->readAll();
    return _parseResponse();
}

bool ModbusDeviceIdentification::_parseResponse()
{
    if (_response.size() < minimumResponseSize) {
        qCWarning(lcModbusDeviceInfo) << __func__ << "got an unexpected response length";
        return false;
    }
    if (byteAt(_response, 0) != transactionHigh || byteAt(_response, 1) != transactionLow) {
        qCWarning(lcModbusDeviceInfo)
            << __func__ << "response frame transaction id did not match request transaction id";
        return false;
    }
    // An exception response has the length 3 and ends here.
    if (byteAt(_response, lengthLowByte) < minimumLength) {
        qCWarning(lcModbusDeviceInfo) << __func__ << "got an unexpected response length";
        return false;
    }
    if (byteAt(_response, moreFollowsByte) == moreFollowsRefused) {
        qCWarning(lcModbusDeviceInfo) << __func__ << "can not yet handle \"More Follows\"";
        return false;
    }

    const quint8 next = byteAt(_response, nextObjectIdByte);
    const quint8 count = byteAt(_response, objectCountByte);
    qCDebug(lcModbusDeviceInfo) << __func__ << "response contains" << int(count) << "objects";
    if (count == 0)
        return true;

    // The length byte says how long a frame should be, but objects are taken as far as they
    // arrived: bytes past the end of what was read count as zero.
    const quint8 end = quint8(next + count);
    qsizetype position = firstObjectByte;
    for (quint8 expected = next; expected != end; ++expected) {
        const quint8 id = byteAt(_response, position);
        if (id != expected)
            qCWarning(lcModbusDeviceInfo)
                << __func__ << "object id" << int(id)
                << "in list does not match next object id:" << int(expected);
        const quint8 length = byteAt(_response, position + 1);
        const qsizetype start = qMin(position + 2, _response.size());
        _setObjectValue(id, QString::fromUtf8(_response.mid(start, length)));
        position += 2 + length;
    }
    return true;
}

void ModbusDeviceIdentification::_setObjectValue(quint8 objectId, const QString &value)
{
    const auto existing = _objects.constFind(objectId);
    if (existing != _objects.cend())
        qCDebug(lcModbusDeviceInfo) << __func__ << "objectId" << objectName(objectId)
                                    << "is already set as" << *existing << "(will be overwritten)";
    _objects.insert(objectId, value);
    qCDebug(lcModbusDeviceInfo) << __func__ << "objectId" << objectName(objectId) << "=" << value;
}

void ModbusDeviceIdentification::_stateChanged(QAbstractSocket::SocketState socketState)
{
    qCDebug(lcModbusDeviceInfo) << __func__ << socketState;
}

void ModbusDeviceIdentification::_disconnected()
{
    qCDebug(lcModbusDeviceInfo) << __func__ << "disconnected!";
}
