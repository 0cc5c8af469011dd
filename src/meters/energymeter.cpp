#include "energymeter.h"

#include "clocktimer.h"
#include "meterregistry.h"

#include <QDateTime>
#include <QDebug>
#include <QHostAddress>

#include <cmath>
#include <cstring>

namespace {

constexpr int staleTimeoutMs = 20000;
const char *const lookupSignature
    = "static EnergyMeter* EnergyMeter::getMeterForPath(const QString&)";

quint32 nowSeconds()
{
    return quint32(QDateTime::currentSecsSinceEpoch());
}

// Upstream measurements ("trafo/N", "pulse/N") are recognised but not implemented.
EnergyMeter *unimplementedUpstream(const QStringList &parts, const QString &path, const char *what)
{
    if (parts.size() != 2) {
        qCritical() << lookupSignature << "Incorrect path: " << path;
        return nullptr;
    }
    bool isNumber = false;
    parts.at(1).toInt(&isNumber);
    if (!isNumber) {
        qCritical() << lookupSignature << parts.at(1) << " not a number";
        return nullptr;
    }
    qWarning() << lookupSignature << "Unimplemented code.";
    qCritical() << lookupSignature << what;
    return nullptr;
}

EnergyMeter *modbusMeter(const QStringList &parts, const QString &path)
{
    MeterRegistry *registry = MeterRegistry::instance();
    if (parts.size() == 3) {
        bool isNumber = false;
        const int channel = parts.at(1).toInt(&isNumber);
        if (!isNumber) {
            qCritical() << lookupSignature << parts.at(1) << " not a number!";
            return nullptr;
        }
        const int address = parts.at(2).toInt(&isNumber);
        if (!isNumber) {
            qCritical() << lookupSignature << parts.at(2) << " not a number!";
            return nullptr;
        }
        Channel resolved = Channel::Invalid;
        if (channel == ModbusPath::pathNumber(Channel::External))
            resolved = Channel::External;
        else if (channel == ModbusPath::pathNumber(Channel::Internal))
            resolved = Channel::Internal;
        if (resolved == Channel::Invalid) {
            qCritical() << lookupSignature << "Invalid modbus channel: " << channel;
            return nullptr;
        }
        // The address is cut to 8 bits without a range check: modbus/1/300 asks for 44.
        return registry ? registry->meterAt({ resolved, quint8(address) }) : nullptr;
    }
    if (parts.size() == 2) {
        const QHostAddress address(parts.at(1));
        if (address.isNull()) {
            qCritical() << lookupSignature << parts.at(1) << "is not a valid IP address!";
            return nullptr;
        }
        return registry ? registry->tcpMeterAt(address.toString()) : nullptr;
    }
    qCritical() << lookupSignature << "Incorrect path: " << path;
    return nullptr;
}

} // namespace

EnergyMeter::EnergyMeter(const QString &name)
    : _categoryName {}
    , _category(std::strncpy(_categoryName, ("meter." + name).toLatin1().constData(),
                    sizeof(_categoryName) - 1),
          QtDebugMsg)
    , _lastUpdate(nowSeconds())
    , _staleTimer(new ClockTimer)
{
    _staleTimer->setSingleShot(true);
    _staleTimer->setInterval(staleTimeoutMs);
    QObject::connect(_staleTimer, &ClockTimer::timeout, _staleTimer,
        [this] { _updateStatus(ERROR_CONNECTION); });
}

EnergyMeter::~EnergyMeter()
{
    delete _staleTimer;
}

QString EnergyMeter::statusToString(EnergyMeterStatus status)
{
    switch (status) {
    case OK:
        return QStringLiteral("OK");
    case ERROR_CONNECTION:
        return QStringLiteral("ERROR_CONNECTION");
    default:
        return QStringLiteral("ERROR_UNKNOWN");
    }
}

QString EnergyMeter::statusText(EnergyMeterStatus status)
{
    switch (status) {
    case OK:
        return QStringLiteral("Connected");
    case ERROR_CONNECTION:
        return QStringLiteral("Faulty");
    default:
        return QStringLiteral("NotFound");
    }
}

void EnergyMeter::_updateStatus(EnergyMeterStatus status)
{
    if (status == _status)
        return;
    if (status == OK)
        qCInfo(_category) << __func__ << "Status changed to" << statusToString(status);
    else
        qCWarning(_category) << __func__ << "Status changed to" << statusToString(status);
    _status = status;
}

void EnergyMeter::_readingReceived()
{
    _lastUpdate = nowSeconds();
    _updateStatus(OK);
    _staleTimer->start();
}

double EnergyMeter::maxCurrent() const
{
    double largest = std::nan("");
    for (int phase = 1; phase <= 3; ++phase) {
        const double value = std::fabs(current(phase));
        if (!std::isnan(value) && (std::isnan(largest) || value > largest))
            largest = value;
    }
    return largest;
}

QVariantMap EnergyMeter::metervalues() const
{
    QVariantMap values {
        { QStringLiteral("last_update"), QVariant::fromValue<quint32>(_lastUpdate) },
        { QStringLiteral("energymeter_status"), QVariant::fromValue<qint32>(_status.load()) },
        { QStringLiteral("status"), statusText(_status) },
        { QStringLiteral("total_energy"), totalEnergy() },
        { QStringLiteral("total_energy_exported"), totalEnergyExported() },
        { QStringLiteral("session_energy"), sessionEnergy() },
        { QStringLiteral("session_energy_exported"), sessionEnergyExported() },
        { QStringLiteral("power"), power() },
        { QStringLiteral("frequency"), frequency() },
    };
    for (int phase = 1; phase <= 3; ++phase) {
        const QString suffix = QString::number(phase);
        values.insert(QStringLiteral("current") + suffix, current(phase));
        values.insert(QStringLiteral("voltage") + suffix, voltage(phase));
        values.insert(QStringLiteral("power_factor") + suffix, powerFactor(phase));
    }
    return values;
}

EnergyMeter *EnergyMeter::getMeterForPath(const QString &path)
{
    const QStringList parts = path.split(QLatin1Char('/'));
    const QString &kind = parts.first();
    if (kind == QLatin1String("modbus"))
        return modbusMeter(parts, path);
    if (kind == QLatin1String("trafo"))
        return unimplementedUpstream(parts, path, "Upstream trafo measurement not implemented");
    if (kind == QLatin1String("pulse"))
        return unimplementedUpstream(
            parts, path, "Upstream pulse/trafo measurement not implemented");
    qCritical() << lookupSignature << "Unknown path: " << path;
    return nullptr;
}
