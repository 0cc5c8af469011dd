#include "meterclient.h"

namespace {

const QString service = QStringLiteral("com.ovra.slavecontroller");
const QString measurementPath = QStringLiteral("/MeasurementManager");
const QString testPath = QStringLiteral("/pts");

} // namespace

MeterClient::MeterClient()
    : _bus(QDBusConnection::systemBus())
    , _measurement(service, measurementPath, _bus)
    , _pts(service, testPath, _bus)
{
}

std::optional<QStringList> MeterClient::meterList()
{
    return _value(_measurement.meterList(), measurementPath);
}

std::optional<MeterSnapshot> MeterClient::snapshot(const QString &path)
{
    // Sent together and awaited together: one round trip instead of three.
    QDBusPendingReply<QVariantMap> values = _measurement.metervalues(path);
    QDBusPendingReply<QString> info = _measurement.info(path);
    QDBusPendingReply<double> errorRate = _measurement.getErrorRate(path);

    const std::optional<QVariantMap> valueMap = _value(values, measurementPath);
    if (!valueMap)
        return std::nullopt;
    const std::optional<QString> infoText = _value(info, measurementPath);
    if (!infoText)
        return std::nullopt;
    const std::optional<double> rate = _value(errorRate, measurementPath);
    if (!rate)
        return std::nullopt;
    return MeterSnapshot(path, *valueMap, *infoText, *rate);
}

std::optional<QList<MeterSnapshot>> MeterClient::snapshots(const QStringList &paths)
{
    QList<MeterSnapshot> meters;
    for (const QString &path : paths) {
        const std::optional<MeterSnapshot> meter = snapshot(path);
        if (!meter)
            return std::nullopt;
        meters.append(*meter);
    }
    return meters;
}

std::optional<quint16> MeterClient::readRegister(quint16 address, quint16 registerAddress)
{
    return _value(_measurement.readModbusRegister(address, registerAddress), measurementPath);
}

std::optional<bool> MeterClient::writeRegister(
    quint16 address, quint16 registerAddress, quint16 value)
{
    return _value(_measurement.setModbusRegister(address, registerAddress, value), measurementPath);
}

std::optional<bool> MeterClient::testRs485()
{
    return _value(_pts.TestRS485(), testPath);
}

ClientFailure MeterClient::_failureFor(const QDBusError &error, const QString &objectPath) const
{
    if (!_bus.isConnected())
        return {
            ExitCode::Unavailable,
            QStringLiteral("cannot reach the D-Bus system bus: %1").arg(_bus.lastError().message())
        };

    switch (error.type()) {
    case QDBusError::ServiceUnknown:
        return { ExitCode::Unavailable,
            QStringLiteral("meterd is not running: %1 is not on the system bus").arg(service) };
    case QDBusError::UnknownObject:
    case QDBusError::UnknownInterface:
    case QDBusError::UnknownMethod:
        // The daemon serves the measurement service in normal mode and the loop test in
        // production-test mode, never both.
        return { ExitCode::Unavailable,
            objectPath == testPath
                ? QStringLiteral("meterd offers the RS-485 loop test only in production-test mode")
                : QStringLiteral("meterd offers no measurement service (production-test mode?)") };
    case QDBusError::NoReply:
    case QDBusError::Timeout:
    case QDBusError::TimedOut:
    case QDBusError::Disconnected:
        return { ExitCode::Unavailable,
            QStringLiteral("meterd did not answer: %1").arg(error.message()) };
    default:
        return { ExitCode::Failed,
            QStringLiteral("unexpected answer from meterd: %1: %2")
                .arg(error.name(), error.message()) };
    }
}
