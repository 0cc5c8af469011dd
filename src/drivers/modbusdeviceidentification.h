#pragma once

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTcpSocket>

// Asks a Modbus TCP device once, on a connection of its own to port 502, for its basic
// identification objects (VendorName, ProductCode, MajorMinorRevision) with the Read Device
// Identification service. The owner polls the state.
class ModbusDeviceIdentification : public QObject
{
    Q_OBJECT

public:
    enum IdentificationState : qint32 { Pending = 0, Failed = 1, Succeeded = 2 };
    Q_ENUM(IdentificationState)

    explicit ModbusDeviceIdentification(const QString &ipAddress, QObject *parent = nullptr);

    IdentificationState state() const { return _state; }
    const QMap<quint8, QString> &objects() const { return _objects; }
    QString object(quint8 objectId) const { return _objects.value(objectId); }

    static QString objectName(quint8 objectId);
    // The request as it goes on the wire; the transaction id is always 0xABCD.
    static QByteArray request();

    // Takes a response as if it had been read from the device: the parse and its log lines,
    // without the exchange. True when it was accepted.
    bool parseResponse(const QByteArray &response);

private slots:
    void _connected();
    void _disconnected();
    void _stateChanged(QAbstractSocket::SocketState socketState);

private:
    bool _retrieve();
    bool _parseResponse();
    void _setObjectValue(quint8 objectId, const QString &value);

    IdentificationState _state = Pending;
    QByteArray _response;
    QString _ipAddress;
    QTcpSocket *_socket;
    QMap<quint8, QString> _objects;
};
