#include "modbussiemenspac3220.h"

#include "meterreading.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

#include <array>

namespace {

constexpr quint32 pac3220Code = 42;

enum class Block { Voltages, Currents, Power, Frequency, FirstEnergy, SecondEnergy };

struct Request
{
    Block block;
    int address;
    int count;
};

// Asked in this order; the meter answers each block as one read.
constexpr std::array<Request, 6> blockRequests { {
    { Block::Voltages, 1, 6 },
    { Block::Currents, 13, 6 },
    { Block::Power, 65, 2 },
    { Block::Frequency, 55, 2 },
    { Block::FirstEnergy, 801, 4 },
    { Block::SecondEnergy, 805, 4 },
} };

void store(MeterReading &reading, Block block, const quint16 *words)
{
    using RegisterDecoding::float32MswFirst;
    using RegisterDecoding::float64MswFirst;
    switch (block) {
    case Block::Voltages:
        for (int phase = 0; phase < 3; ++phase)
            reading.voltage[phase] = float32MswFirst(&words[phase * 2]);
        break;
    case Block::Currents:
        for (int phase = 0; phase < 3; ++phase)
            reading.current[phase] = float32MswFirst(&words[phase * 2]);
        break;
    case Block::Power:
        reading.power = float32MswFirst(words);
        break;
    case Block::Frequency:
        reading.frequency = float32MswFirst(words);
        break;
    case Block::FirstEnergy:
        reading.energy = float64MswFirst(words);
        break;
    case Block::SecondEnergy:
        reading.energy += float64MswFirst(words);
        break;
    }
}

} // namespace

ModbusSiemensPAC3220::ModbusSiemensPAC3220(ModbusReaderParent *meter, quint8 address)
    : ModbusRegisterReader(meter, address)
{
}

// The meter was recognised by its device identification already; there is nothing more to
// read that the daemon shows.
bool ModbusSiemensPAC3220::readStatic(modbus_t *)
{
    parentMeter()->updateStatic(ModbusMeter::codeToString(pac3220Code), pac3220Code, QString(), 0);
    return true;
}

bool ModbusSiemensPAC3220::readValues(modbus_t *context)
{
    if (!selectSlave(context))
        return false;

    MeterReading reading;
    reading.energyExported = 0.0;
    std::array<quint16, 6> words {};
    for (const Request &request : blockRequests) {
        if (parentMeter()->readRegisters(context, request.address, request.count, words.data())
            != request.count)
            return false;
        store(reading, request.block, words.data());
    }
    parentMeter()->publishReading(reading);
    return true;
}
