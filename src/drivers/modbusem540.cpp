#include "modbusem540.h"

#include "driverlogging.h"
#include "meterreading.h"
#include "modbusexception.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

#include <array>
#include <cerrno>
#include <map>

namespace {

struct RegisterIndex
{
    int address;
    int words;
    // Word offset of the register inside the bulk block; -1 when it is not taken from there.
    int blockOffset;
};

enum Key {
    IdCode = 0,
    Voltage1 = 1,
    Voltage2 = 2,
    Voltage3 = 3,
    Current1 = 4,
    Current2 = 5,
    Current3 = 6,
    // Powers of the phases: in the table, not read.
    PhasePower1 = 7,
    PhasePower2 = 8,
    PhasePower3 = 9,
    Power = 10,
    PowerFactor1 = 11,
    PowerFactor2 = 12,
    PowerFactor3 = 13,
    PhaseSequence = 14,
    Frequency = 15,
    StaticData = 16,
    Energy = 17,
    EnergyExported = 18,
    Version = 19,
    Revision = 20,
    Serial = 21,
};

// The power is taken from words 28-29 of the block although the meter keeps the system power
// at 40-41: the station has always reported that value as the EM540's power, and still does.
const std::map<int, RegisterIndex> registerTable {
    { IdCode, { 11, 1, -1 } },
    { Voltage1, { 0, 2, 0 } },
    { Voltage2, { 2, 2, 2 } },
    { Voltage3, { 4, 2, 4 } },
    { Current1, { 12, 2, 12 } },
    { Current2, { 14, 2, 14 } },
    { Current3, { 16, 2, 16 } },
    { PhasePower1, { 18, 2, -1 } },
    { PhasePower2, { 20, 2, -1 } },
    { PhasePower3, { 22, 2, -1 } },
    { Power, { 40, 2, 28 } },
    { PowerFactor1, { 46, 1, 46 } },
    { PowerFactor2, { 47, 1, 47 } },
    { PowerFactor3, { 48, 1, 48 } },
    { PhaseSequence, { 50, 1, -1 } },
    { Frequency, { 51, 1, 51 } },
    { StaticData, { 0x1104, 1, -1 } },
    { Energy, { 52, 2, 52 } },
    { EnergyExported, { 78, 2, 78 } },
    { Version, { 0x302, 1, -1 } },
    { Revision, { 0x303, 1, -1 } },
    { Serial, { 0x5000, 8, -1 } },
};

constexpr int blockWords = 80;
using Block = std::array<quint16, blockWords>;

// Phase sequence register: 0 for L1-L2-L3, -1 for L1-L3-L2.
constexpr quint16 phaseSequenceForward = 0x0000;
constexpr quint16 phaseSequenceReversed = 0xFFFF;

ModbusException libmodbusFailure()
{
    return ModbusException(modbus_strerror(errno));
}

// 32-bit entries are INT32 with the low word first; 16-bit ones are taken unsigned, so a power
// factor word 0xFFFF is 65.535 and not -0.001.
double blockValue(const Block &block, int key)
{
    const RegisterIndex &index = registerTable.at(key);
    if (index.blockOffset < 0 || index.blockOffset + index.words > blockWords)
        throw ModbusException("Invalid register index");
    const quint16 *words = &block[std::size_t(index.blockOffset)];
    return index.words == 2 ? double(RegisterDecoding::int32LswFirst(words)) : double(words[0]);
}

// The EM540's energies are handed on with single precision, as the station has always received
// them.
double energyValue(const Block &block, int key)
{
    return double(float(blockValue(block, key)) / 10.0f);
}

// The static extra value tells the phase sequence: 1 when it runs L1-L2-L3, 2 when it is
// reversed, 0 when the meter reports neither.
quint32 phaseSequenceExtra(quint16 word)
{
    if (word == phaseSequenceForward)
        return 1;
    if (word == phaseSequenceReversed)
        return 2;
    qCWarning(lcModbusMeter) << "readStatic"
                             << "Unknown phase sequence value" << qint16(word);
    return 0;
}

} // namespace

ModbusEM540::ModbusEM540(ModbusReaderParent *meter, quint8 address)
    : ModbusRegisterReader(meter, address)
{
}

bool ModbusEM540::readStatic(modbus_t *context)
{
    try {
        _readStatic(context);
        return true;
    } catch (const std::exception &failure) {
        parentMeter()->errorRoutine(QString::fromLatin1(failure.what()));
        return false;
    }
}

bool ModbusEM540::readValues(modbus_t *context)
{
    try {
        parentMeter()->publishReading(_readBlock(context));
        return true;
    } catch (const std::exception &failure) {
        parentMeter()->errorRoutine(QString::fromLatin1(failure.what()));
        return false;
    }
}

void ModbusEM540::_readStatic(modbus_t *context)
{
    _selectSlave(context);
    const quint16 version = _readRegister(context, Version).front();
    const quint16 revision = _readRegister(context, Revision).front();
    const quint16 id = _readRegister(context, IdCode).front();
    const std::vector<quint16> serialWords = _readRegister(context, Serial);
    const quint16 staticData = _readRegister(context, StaticData).front();
    const quint16 phaseSequence = _readRegister(context, PhaseSequence).front();

    const int serialCount = int(serialWords.size());
    const QString serial
        = RegisterDecoding::serialFromRegisters(serialWords.data(), serialCount, serialCount * 2);
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Version: " << version << " Rev " << revision << " ID " << id << " Serial: " << serial
        << " Static: " << staticData << " Phase sequence: " << qint16(phaseSequence);
    parentMeter()->updateStatic(
        ModbusMeter::codeToString(id), id, serial, phaseSequenceExtra(phaseSequence));
}

MeterReading ModbusEM540::_readBlock(modbus_t *context)
{
    _selectSlave(context);
    Block block {};
    if (parentMeter()->readRegisters(context, 0, blockWords, block.data()) != blockWords)
        throw libmodbusFailure();

    MeterReading reading;
    reading.voltage[0] = float(blockValue(block, Voltage1) / 10.0);
    reading.voltage[1] = float(blockValue(block, Voltage2) / 10.0);
    reading.voltage[2] = float(blockValue(block, Voltage3) / 10.0);
    reading.current[0] = float(blockValue(block, Current1) / 1000.0);
    reading.current[1] = float(blockValue(block, Current2) / 1000.0);
    reading.current[2] = float(blockValue(block, Current3) / 1000.0);
    reading.powerFactor[0] = float(blockValue(block, PowerFactor1) / 1000.0);
    reading.powerFactor[1] = float(blockValue(block, PowerFactor2) / 1000.0);
    reading.powerFactor[2] = float(blockValue(block, PowerFactor3) / 1000.0);
    reading.power = float(blockValue(block, Power) / 10.0);
    reading.frequency = float(blockValue(block, Frequency) / 10.0);
    reading.energy = energyValue(block, Energy);
    reading.energyExported = energyValue(block, EnergyExported);
    return reading;
}

std::vector<quint16> ModbusEM540::_readRegister(modbus_t *context, int key)
{
    const RegisterIndex &index = registerTable.at(key);
    std::vector<quint16> words(std::size_t(index.words));
    if (parentMeter()->readRegisters(context, index.address, index.words, words.data())
        != index.words)
        throw libmodbusFailure();
    return words;
}

void ModbusEM540::_selectSlave(modbus_t *context)
{
    if (!selectSlave(context))
        throw libmodbusFailure();
}
