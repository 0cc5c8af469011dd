#pragma once

#include <QObject>
#include <QString>
#include <map>

class MeterBank;
class TcpDevice;

// The meters played over Modbus TCP, one device per loopback address. Their meters live in the
// bank beside the serial ones, so they drift alike.
class NetworkDevices : public QObject
{
    Q_OBJECT

public:
    explicit NetworkDevices(MeterBank &bank, QObject *parent = nullptr);

    // HOST:MODEL[:IDCODE], e.g. 127.0.0.2:PAC3220 or 127.0.0.3:EM24:1650. False with the reason
    // when the text does not fit or the address is taken.
    bool add(const QString &text, QString *error);
    // Starts every device listening; false with the reason at the first that cannot.
    bool listen(QString *error);

    TcpDevice *find(const QString &host) const;
    bool isEmpty() const { return _devices.empty(); }

private:
    MeterBank &_bank;
    std::map<QString, TcpDevice *> _devices;
    // Network meters take slave ids past the serial range, so they never clash in the bank.
    int _nextId = 1000;
};
