#include "networkdevices.h"

#include "meter.h"
#include "meterbank.h"
#include "tcpdevice.h"

#include <QHostAddress>

NetworkDevices::NetworkDevices(MeterBank &bank, QObject *parent)
    : QObject(parent)
    , _bank(bank)
{
}

bool NetworkDevices::add(const QString &text, QString *error)
{
    const QHostAddress address(text.section(u':', 0, 0));
    const auto model = MeterModel::fromName(text.section(u':', 1, 1));
    const QString idCode = text.section(u':', 2);
    if (address.protocol() != QAbstractSocket::IPv4Protocol || !model) {
        *error = QStringLiteral("bad network meter %1: want HOST:MODEL[:IDCODE] with an IPv4 "
                                "HOST and MODEL one of %2")
                     .arg(text, MeterModel::names().join(u' '));
        return false;
    }
    if (_devices.count(address.toString())) {
        *error = QStringLiteral("network meter %1 given twice").arg(address.toString());
        return false;
    }
    auto meter = std::make_unique<Meter>(_nextId++, *model);
    if (!idCode.isEmpty() && !meter->set(QStringLiteral("idcode"), idCode, error))
        return false;
    Meter &added = *meter;
    _bank.add(std::move(meter));
    _devices.emplace(address.toString(), new TcpDevice(address, added, this));
    return true;
}

bool NetworkDevices::listen(QString *error)
{
    for (const auto &[host, device] : _devices) {
        if (!device->listen(error))
            return false;
    }
    return true;
}

TcpDevice *NetworkDevices::find(const QString &host) const
{
    const auto found = _devices.find(QHostAddress(host).toString());
    return found == _devices.end() ? nullptr : found->second;
}
