#include "modbusem111.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

using Encoding = CarloGavazziDriver::Encoding;
using Quantity = CarloGavazziDriver::Quantity;

constexpr CarloGavazziDriver::Request requests[] = { { 0, 6 }, { 20, 2 } };
constexpr CarloGavazziDriver::Field fields[] = {
    { 0, Encoding::Int32LswFirst, Quantity::Voltage1, 10.0 },
    { 2, Encoding::Int32LswFirst, Quantity::Current1, 1000.0 },
    { 4, Encoding::Int32LswFirst, Quantity::Power, 10.0 },
    { 20, Encoding::Int32LswFirst, Quantity::Energy, 10.0 },
};
constexpr CarloGavazziDriver::Layout layout { requests, fields };
static_assert(CarloGavazziDriver::isValidLayout(layout));

constexpr int serialRegisterCount = 7;
// The serial number has 13 characters; the last byte of its seven registers is not part of it.
constexpr int serialBytes = 13;

} // namespace

ModbusEM111::ModbusEM111(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, layout)
{
}

bool ModbusEM111::readStatic(modbus_t *context)
{
    std::array<quint16, 2> version {};
    quint16 id = 0;
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!beginStaticRead(context)
        || !readStaticRegisters(context, versionRegister, 2, version.data())
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, serialRegister, serialRegisterCount, serialWords.data()))
        return false;

    const QString serial = RegisterDecoding::serialFromRegisters(
        serialWords.data(), serialRegisterCount, serialBytes);
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Version: " << version[0] << " Rev " << version[1] << " ID " << id << " Year " << 0
        << " Serial: " << serial << " 2 " << serialWords[serialRegisterCount - 1];
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, 0);
    return true;
}
