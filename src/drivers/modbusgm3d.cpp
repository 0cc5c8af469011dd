#include "modbusgm3d.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

namespace {

using Encoding = CarloGavazziDriver::Encoding;
using Quantity = CarloGavazziDriver::Quantity;

// Voltages and currents sit in register pairs of which only the lower-address word is taken:
// the other word does not belong to the value (register 11 holds the identification code).
constexpr CarloGavazziDriver::Request requests[] = { { 0, 16 } };
constexpr CarloGavazziDriver::Field fields[] = {
    { 0, Encoding::Uint16, Quantity::Voltage1, 10.0 },
    { 2, Encoding::Uint16, Quantity::Voltage2, 10.0 },
    { 4, Encoding::Uint16, Quantity::Voltage3, 10.0 },
    { 6, Encoding::Uint16, Quantity::Current1, 1000.0 },
    { 8, Encoding::Uint16, Quantity::Current2, 1000.0 },
    { 10, Encoding::Uint16, Quantity::Current3, 1000.0 },
    { 12, Encoding::Int32LswFirst, Quantity::Power, 10.0 },
    { 14, Encoding::Int32LswFirst, Quantity::Energy, 10.0 },
};
constexpr CarloGavazziDriver::Layout layout { requests, fields };
static_assert(CarloGavazziDriver::isValidLayout(layout));

// Shown in the log only, as on the other Carlo Gavazzi layouts.
constexpr int yearRegister = 0x0010;
constexpr int loggedRegister = 0x1103;
// The serial number is a 32-bit number, low word first.
constexpr int serialNumberRegister = 0x1104;

} // namespace

ModbusGM3D::ModbusGM3D(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, layout)
{
}

bool ModbusGM3D::readStatic(modbus_t *context)
{
    std::array<quint16, 2> version {};
    quint16 id = 0;
    quint16 year = 0;
    quint16 logged = 0;
    std::array<quint16, 2> serialWords {};
    if (!beginStaticRead(context)
        || !readStaticRegisters(context, versionRegister, 2, version.data())
        || !readStaticRegisters(context, idCodeRegister, 1, &id)
        || !readStaticRegisters(context, yearRegister, 1, &year)
        || !readStaticRegisters(context, loggedRegister, 1, &logged)
        || !readStaticRegisters(context, serialNumberRegister, 2, serialWords.data()))
        return false;

    const QString serial
        = QString::number(quint32(RegisterDecoding::int32LswFirst(serialWords.data())));
    qCInfo(lcModbusMeter).noquote()
        << "readStatic"
        << "Version: " << version[0] << " Rev " << version[1] << " ID " << id << " Year " << year
        << " Serial: " << serial << " 2 " << logged;
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, 0);
    return true;
}
