#include "modbusem580.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

using Encoding = CarloGavazziDriver::Encoding;
using Quantity = CarloGavazziDriver::Quantity;

// One request covers the whole real-time block.
constexpr CarloGavazziDriver::Request requests[] = { { 0x0000, 80 } };
constexpr CarloGavazziDriver::Field fields[] = {
    { 0x0000, Encoding::Int32LswFirst, Quantity::Voltage1, 10.0 },
    { 0x0002, Encoding::Int32LswFirst, Quantity::Voltage2, 10.0 },
    { 0x0004, Encoding::Int32LswFirst, Quantity::Voltage3, 10.0 },
    { 0x000C, Encoding::Int32LswFirst, Quantity::Current1, 1000.0 },
    { 0x000E, Encoding::Int32LswFirst, Quantity::Current2, 1000.0 },
    { 0x0010, Encoding::Int32LswFirst, Quantity::Current3, 1000.0 },
    { 0x0028, Encoding::Int32LswFirst, Quantity::Power, 10.0 },
    { 0x002E, Encoding::Int16, Quantity::PowerFactor1, 1000.0 },
    { 0x002F, Encoding::Int16, Quantity::PowerFactor2, 1000.0 },
    { 0x0030, Encoding::Int16, Quantity::PowerFactor3, 1000.0 },
    { 0x0033, Encoding::Int16, Quantity::Frequency, 10.0 },
    { 0x0034, Encoding::Int32LswFirst, Quantity::Energy, 10.0 },
    { 0x004E, Encoding::Int32LswFirst, Quantity::EnergyExported, 10.0 },
};
constexpr CarloGavazziDriver::Layout layout { requests, fields };
static_assert(CarloGavazziDriver::isValidLayout(layout));

// The serial's seven registers are followed by the production year: one request reads both.
constexpr int serialRegisterCount = 7;
constexpr int serialAndYearCount = serialRegisterCount + 1;

} // namespace

ModbusEM580::ModbusEM580(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, layout)
{
}

bool ModbusEM580::readStatic(modbus_t *context)
{
    std::array<quint16, 2> firmware {};
    quint16 id = 0;
    std::array<quint16, serialAndYearCount> serialAndYear {};
    if (!beginStaticRead(context)
        || !readStaticRegisters(context, versionRegister, 2, firmware.data())
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, serialRegister, serialAndYearCount, serialAndYear.data()))
        return false;

    // The EM500 series sends the first character of each register first, as its protocol
    // document describes, unlike the older models.
    const QString serial
        = RegisterDecoding::textHighByteFirst(serialAndYear.data(), serialRegisterCount);
    const quint16 year = serialAndYear[serialRegisterCount];
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Measurement firmware: " << RegisterDecoding::nibbleVersion(firmware[0])
        << " Communication firmware: " << RegisterDecoding::nibbleVersion(firmware[1]) << " ID "
        << id << " Year " << year << " Serial: " << serial;
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, year);
    return true;
}
