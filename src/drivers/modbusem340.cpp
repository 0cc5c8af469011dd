#include "modbusem340.h"

#include "driverlogging.h"
#include "modbusmeter.h"
#include "modbusreaderparent.h"
#include "registerdecoding.h"

#include <cerrno>

namespace {

using Encoding = CarloGavazziDriver::Encoding;
using Quantity = CarloGavazziDriver::Quantity;

constexpr CarloGavazziDriver::Request requests[] = { { 0, 18 }, { 40, 40 } };
constexpr CarloGavazziDriver::Field fields[] = {
    { 0, Encoding::Int32LswFirst, Quantity::Voltage1, 10.0 },
    { 2, Encoding::Int32LswFirst, Quantity::Voltage2, 10.0 },
    { 4, Encoding::Int32LswFirst, Quantity::Voltage3, 10.0 },
    { 12, Encoding::Int32LswFirst, Quantity::Current1, 1000.0 },
    { 14, Encoding::Int32LswFirst, Quantity::Current2, 1000.0 },
    { 16, Encoding::Int32LswFirst, Quantity::Current3, 1000.0 },
    { 40, Encoding::Int32LswFirst, Quantity::Power, 10.0 },
    { 46, Encoding::Int16, Quantity::PowerFactor1, 1000.0 },
    { 47, Encoding::Int16, Quantity::PowerFactor2, 1000.0 },
    { 48, Encoding::Int16, Quantity::PowerFactor3, 1000.0 },
    { 51, Encoding::Int16, Quantity::Frequency, 10.0 },
    { 52, Encoding::Int32LswFirst, Quantity::Energy, 10.0 },
    { 78, Encoding::Int32LswFirst, Quantity::EnergyExported, 10.0 },
};
constexpr CarloGavazziDriver::Layout layout { requests, fields };
static_assert(CarloGavazziDriver::isValidLayout(layout));

constexpr int yearRegister = 0x5010;
constexpr int serialRegisterCount = 7;

} // namespace

ModbusEM340::ModbusEM340(ModbusReaderParent *meter, quint8 address)
    : CarloGavazziDriver(meter, address, layout)
{
}

bool ModbusEM340::readStatic(modbus_t *context)
{
    std::array<quint16, 2> version {};
    quint16 id = 0;
    quint16 year = 0;
    if (!beginStaticRead(context)
        || !readStaticRegisters(context, versionRegister, 2, version.data())
        || !readStaticRegisters(context, idCodeRegister, 1, &id) || !_readYear(context, year))
        return false;
    const std::optional<quint32> extra = readExtraAfterWrite(context);
    std::array<quint16, serialRegisterCount> serialWords {};
    if (!extra
        || !readStaticRegisters(context, serialRegister, serialRegisterCount, serialWords.data()))
        return false;

    const QString serial = RegisterDecoding::serialFromRegisters(
        serialWords.data(), serialRegisterCount, serialRegisterCount * 2);
    qCInfo(lcModbusMeter).noquote() << "readStatic"
                                    << "Version:" << version[0] << " Rev:" << version[1]
                                    << " ID:" << id << " Year:" << year << " Serial:" << serial;
    parentMeter()->updateStatic(ModbusMeter::codeToString(id), id, serial, *extra);
    return true;
}

// Not every EM300 meter has the production-year register; one that refuses its address is read
// on without a year.
bool ModbusEM340::_readYear(modbus_t *context, quint16 &year)
{
    if (parentMeter()->readRegisters(context, yearRegister, 1, &year) == 1)
        return true;
    if (errno != EMBXILADD) {
        reportStaticFailure();
        return false;
    }
    year = 0;
    qCInfo(lcModbusMeter) << "readStatic"
                          << "Unable to get production year.";
    return true;
}

// EM300 energies are handed on with single precision, as the station has always received them.
double ModbusEM340::finishValue(Quantity quantity, double value) const
{
    if (quantity == Quantity::Energy || quantity == Quantity::EnergyExported)
        return double(float(value));
    return value;
}
