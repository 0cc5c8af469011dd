// The benchmark's floor: the least a Qt 6 D-Bus service can be. One method with the signature of
// the measurement service's `current`, answered through an adaptor as meterd answers, with no
// work behind it. Takes the bus from DBUS_SYSTEM_BUS_ADDRESS and prints "ready" once it serves.

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>

#include <cstdio>

class FloorService : public QObject
{
    Q_OBJECT

public slots:
    double current(const QString &, int) { return 0.0; }
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
