#include "modbusem24.h"

#include "modbuslogging.h"
#include "modbusreaderparent.h"
#include "modbustcpmeter.h"
#include "registerdecoding.h"

namespace {

constexpr auto threePhase = CarloGavazziDriver::threePhaseLayout(52);
static_assert(CarloGavazziDriver::isValidLayout(threePhase.layout()));

constexpr int measurementVersionRegister = 772;
constexpr int serialRegisterCount = 7;

} // namespace

ModbusEM24::ModbusEM24(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, threePhase.layout())
{
}

bool ModbusEM24::readStatic(modbus_t *context)
{
    quint16 communicationVersion = 0;
    quint16 measurementVersion = 0;
    quint16 id = 0;
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!beginStaticRead(context)
        || !readStaticRegisters(context, versionRegister, 1, &communicationVersion)
        || !readStaticRegisters(context, measurementVersionRegister, 1, &measurementVersion)
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, serialRegister, serialRegisterCount, serialWords.data()))
        return false;

    const QString serial = RegisterDecoding::serialFromRegisters(
        serialWords.data(), serialRegisterCount, serialRegisterCount * 2);
    qCInfo(lcModbusReader).noquote()
        << "readStatic"
        << "id:" << id << "comm ver:" << RegisterDecoding::nibbleVersion(communicationVersion)
        << "measure ver:" << RegisterDecoding::nibbleVersion(measurementVersion)
        << "serial:" << serial;
    parentMeter()->updateStatic(ModbusTCPMeter::codeToString(id), id, serial, 0);
    return true;
}
