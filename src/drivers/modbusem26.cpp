#include "modbusem26.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

// The EM26 keeps its imported energy ten registers further on than the EM210 and EM24.
constexpr auto threePhase = CarloGavazziDriver::threePhaseLayout(62);
static_assert(CarloGavazziDriver::isValidLayout(threePhase.layout()));

constexpr int extraFlagRegister = 0x0036;
constexpr int em26SerialRegister = 0x1300;
constexpr int serialRegisterCount = 7;

} // namespace

ModbusEM26::ModbusEM26(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, threePhase.layout())
{
}

bool ModbusEM26::readStatic(modbus_t *context)
{
    std::array<quint16, 2> version {};
    quint16 id = 0;
    quint16 flag = 0;
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!beginStaticRead(context)
        || !readStaticRegisters(context, versionRegister, 2, version.data())
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, extraFlagRegister, 1, &flag)
        || !readStaticRegisters(
            context, em26SerialRegister, serialRegisterCount, serialWords.data()))
        return false;

    const QString serial = RegisterDecoding::serialFromRegisters(
        serialWords.data(), serialRegisterCount, serialRegisterCount * 2);
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Version: " << version[0] << " Rev " << version[1] << " ID " << id << " Year " << flag
        << " Serial: " << serial << " 2 " << serialWords[serialRegisterCount - 1];
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, extraFromFlag(flag));
    return true;
}
