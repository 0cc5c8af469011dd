#include "modbusem511.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

using Encoding = CarloGavazziDriver::Encoding;
using Quantity = CarloGavazziDriver::Quantity;

constexpr CarloGavazziDriver::Request requests[] = { { 0x0000, 6 }, { 0x000E, 4 }, { 0x0020, 2 } };
constexpr CarloGavazziDriver::Field fields[] = {
    { 0x0000, Encoding::Int32LswFirst, Quantity::Voltage1, 10.0 },
    { 0x0002, Encoding::Int32LswFirst, Quantity::Current1, 1000.0 },
    { 0x0004, Encoding::Int32LswFirst, Quantity::Power, 10.0 },
    { 0x000E, Encoding::Int16, Quantity::PowerFactor1, 1000.0 },
    { 0x000F, Encoding::Int16, Quantity::Frequency, 10.0 },
    { 0x0010, Encoding::Int32LswFirst, Quantity::Energy, 10.0 },
    { 0x0020, Encoding::Int32LswFirst, Quantity::EnergyExported, 10.0 },
};
constexpr CarloGavazziDriver::Layout layout { requests, fields };
static_assert(CarloGavazziDriver::isValidLayout(layout));

constexpr int serialRegisterCount = 7;

} // namespace

ModbusEM511::ModbusEM511(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, layout)
{
}

bool ModbusEM511::readStatic(modbus_t *context)
{
    quint16 firmware = 0;
    quint16 id = 0;
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!beginStaticRead(context) || !readStaticRegisters(context, versionRegister, 1, &firmware)
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, serialRegister, serialRegisterCount, serialWords.data()))
        return false;

    // The EM500 series sends the first character of each register first, as its protocol
    // document describes, unlike the older models.
    const QString serial
        = RegisterDecoding::textHighByteFirst(serialWords.data(), serialRegisterCount);
    qCInfo(lcModbusMeter).noquote() << "readStatic"
                                    << "Firmware: " << RegisterDecoding::nibbleVersion(firmware)
                                    << " ID " << id << " Serial: " << serial;
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, 0);
    return true;
}
