#pragma once

#include "identificationmode.h"
#include "identificationreply.h"

#include <QHostAddress>
#include <QObject>
#include <QTcpServer>

class Meter;
class QTcpSocket;
struct MbapFrame;

// One meter on the network: a Modbus TCP server on its own address, port 502, answering the
// register requests from its meter's registers and Read Device Identification as its mode says.
// Besides the meter's faults it can reset every connection on a request and stop listening.
class TcpDevice : public QObject
{
    Q_OBJECT

public:
    static constexpr quint16 Port = 502;

    TcpDevice(const QHostAddress &address, Meter &meter, QObject *parent = nullptr);

    QHostAddress address() const { return _address; }
    Meter &meter() const { return _meter; }

    // False with the reason when the address cannot be bound.
    bool listen(QString *error);
    // Drops every connection and refuses new ones until listen() again.
    void stopListening();

    void setIdentificationMode(IdentificationMode::Kind mode) { _identificationMode = mode; }
    void setResetting(bool resetting) { _resetting = resetting; }
    // Identity keys (vendor, productcode, revision); false for any other key.
    bool setIdentity(const QString &key, const QString &value);

private:
    void accept();
    void onReadable(QTcpSocket *socket);
    void respond(QTcpSocket *socket, const MbapFrame &request);
    void identify(QTcpSocket *socket, const MbapFrame &request);
    void sendRegisters(QTcpSocket *socket, const MbapFrame &request);

    QHostAddress _address;
    Meter &_meter;
    QTcpServer _server;
    DeviceIdentity _identity;
    IdentificationMode::Kind _identificationMode = IdentificationMode::Normal;
    bool _resetting = false;
};
