#include "modbusgm3t.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

constexpr auto threePhase = CarloGavazziDriver::threePhaseLayout(52);
static_assert(CarloGavazziDriver::isValidLayout(threePhase.layout()));
// Currents in hundredths of an ampere instead of thousandths.
constexpr auto retrofitThreePhase = CarloGavazziDriver::threePhaseLayout(52, 100.0);
static_assert(CarloGavazziDriver::isValidLayout(retrofitThreePhase.layout()));
constexpr quint16 retrofitCode = 70;

constexpr int revisionRegister = 771;
constexpr int extraFlagRegister = 0x0032;
constexpr int serialRegisterCount = 7;

} // namespace

ModbusGM3T::ModbusGM3T(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, threePhase.layout())
{
}

bool ModbusGM3T::readStatic(modbus_t *context)
{
    quint16 version = 0;
    quint16 revision = 0;
    quint16 id = 0;
    if (!beginStaticRead(context) || !readStaticRegisters(context, versionRegister, 1, &version)
        || !readStaticRegisters(context, revisionRegister, 1, &revision)
        || !readStaticRegisters(context, idCodeRegister, 1, &id))
        return false;
    // Known as soon as the code is, so the currents are right even while the rest of the static
    // read keeps failing.
    setLayout(id == retrofitCode ? retrofitThreePhase.layout() : threePhase.layout());

    quint16 flag = 0;
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!readStaticRegisters(context, extraFlagRegister, 1, &flag)
        || !readStaticRegisters(context, serialRegister, serialRegisterCount, serialWords.data()))
        return false;

    const QString serial = RegisterDecoding::serialFromRegisters(
        serialWords.data(), serialRegisterCount, serialRegisterCount * 2);
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Version: " << version << " Rev " << revision << " ID " << id << " Serial: " << serial;
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, extraFromFlag(flag));
    return true;
}
