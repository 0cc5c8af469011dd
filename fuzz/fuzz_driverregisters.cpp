// Register words from the wire into each meter driver: every driver of the catalogue (RTU) and the
// two network models (TCP). The input picks the driver and the slave address, then answers each
// register request with words or a failure; the driver's static read and several measurement
// reads run on it, then one read cycle with its error counting.

#include "drivercatalogue.h"
#include "fuzzapplication.h"
#include "fuzzreaderparent.h"
#include "modbusem24.h"
#include "modbusregisterreader.h"
#include "modbussiemenspac3220.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

struct Driver
{
    DriverCatalogue::Factory create;
    EnergyMeterType type;
    bool overTcp;
    // IEEE-754 registers can carry NaN or infinity themselves; integer registers cannot.
    bool floatRegisters;
};

std::vector<Driver> drivers;
modbus_t *rtuContext = nullptr;
modbus_t *tcpContext = nullptr;

template <typename Model> ModbusRegisterReader *create(ModbusReaderParent *meter, quint8 address)
{
    return new Model(meter, address);
}

// Every code the catalogue knows, so that each model row (not only each driver class) is read.
void collectDrivers()
{
    for (quint32 code = 0; code <= 0xFFFF; ++code) {
        const DriverCatalogue::Entry *entry = DriverCatalogue::find(code);
        if (entry && entry->create)
            drivers.push_back({ entry->create, EnergyMeterTypes::ModbusRtu, false, false });
    }
    for (EnergyMeterType type = EnergyMeterTypes::Lowest; type <= EnergyMeterTypes::ModbusTcp;
         ++type) {
        if (const DriverCatalogue::ConfiguredEntry *entry = DriverCatalogue::findConfigured(type))
            drivers.push_back({ entry->create, type, false, false });
    }
    drivers.push_back({ create<ModbusEM24>, EnergyMeterTypes::ModbusTcp, true, false });
    drivers.push_back({ create<ModbusSiemensPAC3220>, EnergyMeterTypes::ModbusTcp, true, true });
}

// Which quantities a reading carries; a model measures the same ones in every reading.
std::vector<bool> measured(const MeterReading &reading)
{
    const float floats[] = { reading.current[0], reading.current[1], reading.current[2],
        reading.voltage[0], reading.voltage[1], reading.voltage[2], reading.powerFactor[0],
        reading.powerFactor[1], reading.powerFactor[2], reading.frequency, reading.power };
    std::vector<bool> mask;
    for (const float value : floats)
        mask.push_back(!std::isnan(value));
    mask.push_back(!std::isnan(reading.energy));
    mask.push_back(!std::isnan(reading.energyExported));
    return mask;
}

void checkReadings(const Driver &driver, const QList<MeterReading> &readings)
{
    if (driver.floatRegisters || readings.isEmpty())
        return;
    const std::vector<bool> first = measured(readings.first());
    for (const MeterReading &reading : readings)
        FUZZ_REQUIRE(measured(reading) == first);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    FuzzApplication::start((*argv)[0]);
    collectDrivers();
    // Created and never connected: the drivers select slaves on them, but no byte leaves.
    rtuContext = modbus_new_rtu("/dev/null", 9600, 'N', 8, 1);
    tcpContext = modbus_new_tcp("127.0.0.1", 502);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const Driver &driver
        = drivers.at(input.ConsumeIntegralInRange<std::size_t>(0, drivers.size() - 1));
    const auto address = input.ConsumeIntegral<quint8>();
    const int measurementReads = input.ConsumeIntegralInRange(1, 4);
    modbus_t *context = driver.overTcp ? tcpContext : rtuContext;

    FuzzReaderParent parent(input, context, driver.type, address);
    const std::unique_ptr<ModbusRegisterReader> reader(driver.create(&parent, address));
    bool staticRead = false;
    for (int poll = 0; poll < measurementReads; ++poll) {
        if (!staticRead) {
            const int updates = parent.staticUpdates();
            staticRead = reader->readStatic(context);
            // Static data is reported once for each static read that succeeds, never otherwise.
            FUZZ_REQUIRE(parent.staticUpdates() == updates + int(staticRead));
        }
        const int published = parent.publishedCount();
        const bool valuesRead = reader->readValues(context);
        FUZZ_REQUIRE(parent.publishedCount() == published + int(valuesRead));
    }

    reader->read(context);
    FUZZ_REQUIRE(reader->requests() >= 1 && reader->errors() <= reader->requests());
    const double errorRate = reader->getErrorRate();
    FUZZ_REQUIRE(errorRate >= 0.0 && errorRate <= 100.0);
    checkReadings(driver, parent.readings());
    return 0;
}
