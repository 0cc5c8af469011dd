// Meter paths as the station's other services pass them over D-Bus: the path parser, the lookup
// of a path to a meter and every MeasurementManager method that takes a path (and a phase). The
// registry holds a few meters with known readings, so that paths both find and miss.
//
// Input: the phase as four bytes (little-endian), one byte whose lowest bit is the state for
// setDisabled, then the path as UTF-8.

#include "energymeter.h"
#include "fuzzapplication.h"
#include "measurementmanager.h"
#include "meterregistry.h"
#include "modbusmeter.h"
#include "modbuspath.h"

#include <QMap>
#include <QtEndian>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

namespace {

constexpr double nanValue = std::numeric_limits<double>::quiet_NaN();

// What meter number n of the registry reads: every value is distinct and none is 0.
double currentOf(int n, int phase)
{
    return 10.0 * n + phase;
}

double voltageOf(int n, int phase)
{
    return 200.0 + 10.0 * n + phase;
}

double powerOf(int n)
{
    return 1000.0 * (n + 1);
}

double energyOf(int n)
{
    return 100.0 * n + 0.5;
}

// Real Modbus meters (never on a bus) at a few RTU places and two network addresses. The
// network ones stand in for TCP meters, which would connect to their address on construction.
class FuzzRegistry : public MeterRegistry
{
public:
    FuzzRegistry()
    {
        add({ Channel::External, 7 }, EnergyMeterTypes::ModbusRtu);
        add({ Channel::External, 255 }, EnergyMeterTypes::ModbusRtu);
        add({ Channel::Internal, 3 }, EnergyMeterTypes::IskraWM3M6);
        addTcp(QStringLiteral("192.168.0.10"));
        addTcp(QStringLiteral("2001:db8::10"));
        registerInstance();
    }

    EnergyMeter *meterAt(const ModbusPath &path) override
    {
        const int n = _rtu.value({ int(path.channel), path.address }, -1);
        return n < 0 ? nullptr : _meters.at(n).get();
    }

    EnergyMeter *tcpMeterAt(const QString &address) override
    {
        const int n = _tcp.value(address, -1);
        return n < 0 ? nullptr : _meters.at(n).get();
    }

    // The number of a meter of this registry, -1 for any other pointer.
    int number(const EnergyMeter *meter) const
    {
        for (std::size_t n = 0; n < _meters.size(); ++n) {
            if (_meters[n].get() == meter)
                return int(n);
        }
        return -1;
    }

    ModbusMeter *meter(int n) const { return _meters.at(std::size_t(n)).get(); }
    int size() const { return int(_meters.size()); }

private:
    void add(const ModbusPath &path, EnergyMeterType type)
    {
        _rtu.insert({ int(path.channel), path.address }, create(path.address, type));
    }

    void addTcp(const QString &address)
    {
        _tcp.insert(address, create(0, EnergyMeterTypes::ModbusTcp));
    }

    int create(quint8 address, EnergyMeterType type)
    {
        const int n = int(_meters.size());
        auto meter = std::make_unique<ModbusMeter>(address, type);
        MeterReading reading;
        for (int phase = 1; phase <= 3; ++phase) {
            reading.current[phase - 1] = float(currentOf(n, phase));
            reading.voltage[phase - 1] = float(voltageOf(n, phase));
        }
        reading.power = float(powerOf(n));
        reading.energy = energyOf(n);
        meter->updateStatic(QStringLiteral("FUZZ"), 0, QString::number(n), 0);
        meter->publishReading(reading);
        _meters.push_back(std::move(meter));
        return n;
    }

    std::vector<std::unique_ptr<ModbusMeter>> _meters;
    QMap<QPair<int, quint8>, int> _rtu;
    QMap<QString, int> _tcp;
};

FuzzRegistry *registry = nullptr;
MeasurementManager *manager = nullptr;

bool inPhaseRange(int phase)
{
    return phase >= 1 && phase <= 3;
}

bool same(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

void checkPathParser(const QString &path, const EnergyMeter *found)
{
    const bool valid = ModbusPath::validPathString(path);
    const ModbusPath parsed = ModbusPath::fromPathString(path);
    FUZZ_REQUIRE(valid == (parsed.channel != Channel::Invalid));
    if (!valid)
        return;
    FUZZ_REQUIRE(parsed.address >= 1);
    FUZZ_REQUIRE(ModbusPath::fromPathString(parsed.toString()) == parsed);
    // Where the strict parser accepts a path the lookup must find the meter at that very place
    // (the parser's prefix test also takes "modbusX", which the lookup does not know).
    if (path.section(QLatin1Char('/'), 0, 0) == QLatin1String("modbus"))
        FUZZ_REQUIRE(found == registry->meterAt(parsed));
}

void checkNotFound(const QString &path, int phase)
{
    FUZZ_REQUIRE(manager->current(path, phase) == 0.0);
    FUZZ_REQUIRE(manager->voltage(path, phase) == 0.0);
    FUZZ_REQUIRE(manager->totalEnergy(path) == 0.0);
    FUZZ_REQUIRE(manager->power(path) == 0.0);
    FUZZ_REQUIRE(std::isnan(manager->getErrorRate(path)));
    FUZZ_REQUIRE(manager->info(path) == QLatin1String("N/A"));
    FUZZ_REQUIRE(manager->metervalues(path).isEmpty());
    FUZZ_REQUIRE(!manager->meterExists(path));
}

void checkFound(const QString &path, int phase, int n)
{
    const double current = inPhaseRange(phase) ? currentOf(n, phase) : nanValue;
    const double voltage = inPhaseRange(phase) ? voltageOf(n, phase) : nanValue;
    FUZZ_REQUIRE(same(manager->current(path, phase), current));
    FUZZ_REQUIRE(same(manager->voltage(path, phase), voltage));
    FUZZ_REQUIRE(manager->totalEnergy(path) == energyOf(n));
    FUZZ_REQUIRE(manager->power(path) == powerOf(n));
    // No driver ever read these meters, so there is no error rate to tell.
    FUZZ_REQUIRE(std::isnan(manager->getErrorRate(path)));
    FUZZ_REQUIRE(manager->info(path) == QStringLiteral("FUZZ:%1").arg(n));
    const QVariantMap values = manager->metervalues(path);
    FUZZ_REQUIRE(values.size() == 18);
    FUZZ_REQUIRE(values.value(QStringLiteral("status")) == QLatin1String("Connected"));
    for (int p = 1; p <= 3; ++p) {
        const QString suffix = QString::number(p);
        FUZZ_REQUIRE(
            values.value(QStringLiteral("current") + suffix).toDouble() == currentOf(n, p));
        FUZZ_REQUIRE(
            values.value(QStringLiteral("voltage") + suffix).toDouble() == voltageOf(n, p));
    }
}

void checkSetDisabled(const QString &path, bool state, int n)
{
    manager->setDisabled(path, state);
    for (int other = 0; other < registry->size(); ++other) {
        ModbusMeter *meter = registry->meter(other);
        const bool switchable = meter->energyMeterType() != EnergyMeterTypes::ModbusTcp;
        FUZZ_REQUIRE(meter->isDisabled() == (other == n && switchable && state));
        meter->setDisabled(false);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    FuzzApplication::start((*argv)[0]);
    registry = new FuzzRegistry;
    // The readings reach the meters through their queued connection.
    FuzzApplication::settle();
    // Configured but partly absent from the registry: modbus/1/8 and the channel 2 meter at 9
    // are configured without a meter, the Internal meter at 3 is one without configuration.
    manager = new MeasurementManager(
        [] {
            return QList<RequiredModbusMeter> {
                { { Channel::External, 7 }, EnergyMeterTypes::ModbusRtu },
                { { Channel::External, 8 }, EnergyMeterTypes::ModbusRtu },
                { { Channel::Internal, 9 }, EnergyMeterTypes::ModbusRtu },
                { { Channel::Invalid, 0 }, EnergyMeterTypes::ModbusRtu },
            };
        },
        [] { return QList<QString> { QStringLiteral("192.168.0.10") }; });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    qint32 phase = 1;
    bool state = false;
    if (size >= sizeof phase) {
        std::memcpy(&phase, data, sizeof phase);
        phase = qFromLittleEndian(phase);
        data += sizeof phase;
        size -= sizeof phase;
    }
    if (size >= 1) {
        state = data[0] & 1;
        ++data;
        --size;
    }
    const QString path = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));

    const EnergyMeter *found = EnergyMeter::getMeterForPath(path);
    const int n = registry->number(found);
    FUZZ_REQUIRE(!found || n >= 0);
    checkPathParser(path, found);
    if (found)
        checkFound(path, phase, n);
    else
        checkNotFound(path, phase);
    // Only configured RTU meters that run exist for the bus clients.
    if (manager->meterExists(path))
        FUZZ_REQUIRE(found && path.startsWith(QLatin1String("modbus/")));
    checkSetDisabled(path, state, n);
    return 0;
}
