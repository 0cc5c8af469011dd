// The benchmark's floor: the least a Qt 6 D-Bus service can be. A method with the signature of
// the measurement service's `current`, answered through an adaptor as meterd answers, with no
// work behind it, and one shaped like `metervalues` that answers a ready map with the same keys
// and types, so that each of the two is compared with what its reply costs Qt by itself. Takes
// the bus from DBUS_SYSTEM_BUS_ADDRESS and prints "ready" once it serves.

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QVariantMap>

#include <cstdio>

class FloorService : public QObject
{
    Q_OBJECT

public:
    FloorService()
    {
        _values = { { "last_update", QVariant::fromValue<quint32>(0) },
            { "energymeter_status", QVariant::fromValue<qint32>(0) }, { "status", "Connected" } };
        for (const char *key : { "total_energy", "total_energy_exported", "session_energy",
                 "session_energy_exported", "power", "frequency" })
            _values.insert(key, 0.0);
        for (const char *key : { "current", "voltage", "power_factor" }) {
            for (int phase = 1; phase <= 3; ++phase)
                _values.insert(key + QString::number(phase), 0.0);
        }
    }

public slots:
    double current(const QString &, int) { return 0.0; }
    QVariantMap metervalues(const QString &) { return _values; }

private:
    QVariantMap _values;
};

class FloorAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.ovra.bench.Floor")

public:
    explicit FloorAdaptor(FloorService *service)
        : QDBusAbstractAdaptor(service)
    {
    }

public slots:
    double current(const QString &path, int phase)
    {
        return static_cast<FloorService *>(parent())->current(path, phase);
    }

    QVariantMap metervalues(const QString &path)
    {
        return static_cast<FloorService *>(parent())->metervalues(path);
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QDBusConnection bus = QDBusConnection::systemBus();
    auto *service = new FloorService;
    new FloorAdaptor(service);
    if (!bus.registerService(QStringLiteral("com.ovra.bench.Floor"))
        || !bus.registerObject(
            QStringLiteral("/Floor"), service, QDBusConnection::ExportAdaptors)) {
        std::fprintf(stderr, "bench_floor: cannot serve on the bus\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

#include "bench_floor.moc"
