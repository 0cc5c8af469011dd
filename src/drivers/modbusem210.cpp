#include "modbusem210.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

constexpr auto threePhase = CarloGavazziDriver::threePhaseLayout(52);
static_assert(CarloGavazziDriver::isValidLayout(threePhase.layout()));

constexpr int revisionRegister = 771;
constexpr int yearRegister = 0x5007;
constexpr int serialRegisterCount = 4;

} // namespace

ModbusEM210::ModbusEM210(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, threePhase.layout())
{
}

bool ModbusEM210::readStatic(modbus_t *context)
{
    quint16 version = 0;
    quint16 revision = 0;
    quint16 id = 0;
    quint16 year = 0;
    if (!beginStaticRead(context) || !readStaticRegisters(context, versionRegister, 1, &version)
        || !readStaticRegisters(context, revisionRegister, 1, &revision)
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, yearRegister, 1, &year))
        return false;
    const std::optional<quint32> extra = readExtraAfterWrite(context);
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!extra
        || !readStaticRegisters(context, serialRegister, serialRegisterCount, serialWords.data()))
        return false;

    const QString serial = RegisterDecoding::serialFromRegisters(
        serialWords.data(), serialRegisterCount, serialRegisterCount * 2);
    qCInfo(lcModbusMeter).noquote() << "readStatic"
                                    << "Version: " << version << " Rev " << revision << " ID " << id
                                    << " Year " << year << " Serial: " << serial;
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, *extra);
    return true;
}
