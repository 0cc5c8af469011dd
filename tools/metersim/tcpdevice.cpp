#include "tcpdevice.h"

#include "logging.h"
#include "mbapframe.h"
#include "meter.h"
#include "modbusreply.h"
#include "modbusrequest.h"

#include <QTcpSocket>
#include <QTimer>
#include <modbus.h>

namespace {

constexpr quint8 EncapsulatedInterface = 0x2B;
// Well past the half second masters usually wait for an answer.
constexpr int SlowReplyMilliseconds = 800;

DeviceIdentity defaultIdentity(MeterModel::Type model)
{
    if (model == MeterModel::PAC3220)
        return { QStringLiteral("SIEMENS"), QStringLiteral("PAC3220"), QStringLiteral("V3.2.1") };
    return { QStringLiteral("Carlo Gavazzi"), MeterModel::name(model), QStringLiteral("1.0") };
}

}

TcpDevice::TcpDevice(const QHostAddress &address, Meter &meter, QObject *parent)
    : QObject(parent)
    , _address(address)
    , _meter(meter)
    , _identity(defaultIdentity(meter.model()))
{
    connect(&_server, &QTcpServer::newConnection, this, &TcpDevice::accept);
}

bool TcpDevice::listen(QString *error)
{
    if (_server.isListening())
        return true;
    if (_server.listen(_address, Port)) {
        qCInfo(lcMeterSim).noquote() << "tcp" << _address.toString() << "listening";
        return true;
    }
    *error = QStringLiteral("cannot listen on %1:%2: %3")
                 .arg(_address.toString())
                 .arg(Port)
                 .arg(_server.errorString());
    return false;
}

void TcpDevice::stopListening()
{
    _server.close();
    for (QTcpSocket *socket : findChildren<QTcpSocket *>())
        socket->abort();
    qCInfo(lcMeterSim).noquote() << "tcp" << _address.toString() << "stopped listening";
}

bool TcpDevice::setIdentity(const QString &key, const QString &value)
{
    if (key.compare(u"vendor", Qt::CaseInsensitive) == 0)
        _identity.vendor = value;
    else if (key.compare(u"productcode", Qt::CaseInsensitive) == 0)
        _identity.productCode = value;
    else if (key.compare(u"revision", Qt::CaseInsensitive) == 0)
        _identity.revision = value;
    else
        return false;
    return true;
}

void TcpDevice::accept()
{
    while (QTcpSocket *socket = _server.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadable(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void TcpDevice::onReadable(QTcpSocket *socket)
{
    QByteArray buffer = socket->property("pending").toByteArray() + socket->readAll();
    while (const auto request = MbapFrame::take(buffer)) {
        respond(socket, *request);
        if (socket->state() != QAbstractSocket::ConnectedState)
            return;
    }
    socket->setProperty("pending", buffer);
}

void TcpDevice::respond(QTcpSocket *socket, const MbapFrame &request)
{
    if (_resetting) {
        qCDebug(lcMeterSim).noquote() << "tcp" << _address.toString() << "resetting connection";
        socket->abort();
        return;
    }
    if (!request.pdu.isEmpty() && static_cast<quint8>(request.pdu[0]) == EncapsulatedInterface)
        identify(socket, request);
    else
        sendRegisters(socket, request);
}

void TcpDevice::identify(QTcpSocket *socket, const MbapFrame &request)
{
    qCDebug(lcMeterSim).noquote() << "tcp" << _address.toString() << "identification request"
                                  << IdentificationMode::name(_identificationMode);
    if (_identificationMode == IdentificationMode::Close) {
        socket->disconnectFromHost();
        return;
    }
    if (const auto reply = IdentificationReply::to(request, _identity, _identificationMode))
        socket->write(*reply);
}

void TcpDevice::sendRegisters(QTcpSocket *socket, const MbapFrame &request)
{
    const auto parsed = ModbusRequest::fromPdu(request.unit, request.pdu);
    if (!parsed)
        return;
    qCDebug(lcMeterSim).noquote() << "tcp" << _address.toString() << parsed->describe();
    MbapFrame reply { request.transaction, request.unit, {} };
    switch (_meter.fault()) {
    case Fault::Silent:
        return;
    case Fault::Exception:
        reply.pdu = ModbusReply::exceptionPdu(*parsed, MODBUS_EXCEPTION_SLAVE_OR_SERVER_FAILURE);
        break;
    case Fault::Slow: {
        reply.pdu = ModbusReply::pdu(_meter, *parsed);
        QTimer::singleShot(SlowReplyMilliseconds, socket,
            [socket, bytes = reply.encoded()] { socket->write(bytes); });
        return;
    }
    case Fault::None:
    case Fault::Frozen:
        reply.pdu = ModbusReply::pdu(_meter, *parsed);
        break;
    }
    socket->write(reply.encoded());
}
