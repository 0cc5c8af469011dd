#include "drivercatalogue.h"

#include "modbusem111.h"
#include "modbusem210.h"
#include "modbusem26.h"
#include "modbusem340.h"
#include "modbusem511.h"
#include "modbusem540.h"
#include "modbusem580.h"
#include "modbusgm3d.h"
#include "modbusgm3t.h"
#include "modbuswm3m6.h"

#include <algorithm>
#include <array>

namespace {

template <typename Driver> ModbusRegisterReader *create(ModbusReaderParent *meter, quint8 address)
{
    return new Driver(meter, address);
}

constexpr const char *em21 = "Carlo Gavazzi EM21 series Modbus meter detected. Code: ";
constexpr const char *em21Regular = "EM21 regular version";
constexpr const char *em21Retrofit = "EM21 Retrofit version";
constexpr const char *em26 = "Carlo Gavazzi EM26 series Modbus meter detected. Code: ";
constexpr const char *em110 = "Carlo Gavazzi EM/ET110 Series Modbus Meter detected. Code: ";
constexpr const char *em210 = "Carlo Gavazzi EM210 series Modbus meter detected. Code: ";
constexpr const char *em300 = "Carlo Gavazzi EM300 Series Modbus Meter detected. Code: ";
// EM300 meters need more quiet time on the bus than the others.
constexpr int em300PauseMs = 40;

// The EM21 family is read by the GM3T driver and code 64 (an EM33 DIN model) by the GM3D one:
// those Garo meters share the Carlo Gavazzi register layouts.
constexpr DriverCatalogue::Entry entries[] = {
    { 42, "PAC3220", nullptr, nullptr, nullptr, 0 },
    { 57, "EM21_AV5", em21, em21Regular, create<ModbusGM3T>, 0 },
    { 58, "EM21_AV6", em21, em21Regular, create<ModbusGM3T>, 0 },
    { 64, "EM33_DIN_AV3", "Garo GM3D Modbus Meter detected", nullptr, create<ModbusGM3D>, 0 },
    { 70, "EM21_72R", em21, em21Retrofit, create<ModbusGM3T>, 0 },
    { 78, "EM26_96_AV5", em26, nullptr, create<ModbusEM26>, 0 },
    { 79, "EM26_96_AV6", em26, nullptr, create<ModbusEM26>, 0 },
    { 100, "EM110_AV7", em110, nullptr, create<ModbusEM111>, 0 },
    { 101, "EM111_AV7", em110, nullptr, create<ModbusEM111>, 0 },
    { 102, "EM112_AV1", em110, nullptr, create<ModbusEM111>, 0 },
    { 103, "EM111_AV8", em110, nullptr, create<ModbusEM111>, 0 },
    { 104, "EM112_AV0", em110, nullptr, create<ModbusEM111>, 0 },
    { 110, "EM110_AV8", em110, nullptr, create<ModbusEM111>, 0 },
    { 114, "EM111_AV5", em110, nullptr, create<ModbusEM111>, 0 },
    { 120, "ET112_AV0", em110, nullptr, create<ModbusEM111>, 0 },
    { 121, "ET112_AV1", em110, nullptr, create<ModbusEM111>, 0 },
    { 210, "EM210", em210, nullptr, create<ModbusEM210>, 0 },
    { 211, "EM210V", em210, nullptr, create<ModbusEM210>, 0 },
    { 331, "EM330_AV6", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 332, "EM330_AV5", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 335, "ET330_AV5", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 336, "ET330_AV6", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 341, "EM340", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 345, "ET340", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 346, "EM341", em300, nullptr, create<ModbusEM340>, em300PauseMs },
    { 1762, "EM540", "Carlo Gavazzi EM540 Modbus Meter detected. Code: ", nullptr,
        create<ModbusEM540>, 0 },
    { 1794, "EM511", "Carlo Gavazzi EM511 Modbus Meter detected. Code: ", nullptr,
        create<ModbusEM511>, 0 },
    { 1843, "EM580", "Carlo Gavazzi EM580 Modbus Meter detected. Code: ", nullptr,
        create<ModbusEM580>, 0 },
};

constexpr DriverCatalogue::ConfiguredEntry configuredEntries[] = {
    { EnergyMeterTypes::IskraWM3M6, "Creating ISKRA meter!", create<ModbusWM3M6> },
};

// Codes strictly increase, so no code has two rows of which one could never be found.
static_assert(std::adjacent_find(std::begin(entries), std::end(entries),
                  [](const auto &a, const auto &b) { return a.code >= b.code; })
    == std::end(entries));

} // namespace

namespace DriverCatalogue {

const Entry *find(quint32 code)
{
    const auto found = std::find_if(std::begin(entries), std::end(entries),
        [code](const Entry &entry) { return entry.code == code; });
    return found == std::end(entries) ? nullptr : found;
}

const ConfiguredEntry *findConfigured(EnergyMeterType type)
{
    const auto found = std::find_if(std::begin(configuredEntries), std::end(configuredEntries),
        [type](const ConfiguredEntry &entry) { return entry.type == type; });
    return found == std::end(configuredEntries) ? nullptr : found;
}

} // namespace DriverCatalogue
