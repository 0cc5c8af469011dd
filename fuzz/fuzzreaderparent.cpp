#include "fuzzreaderparent.h"

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzzapplication.h"

#include <array>
#include <cerrno>

namespace {

// What a request can end in on a real line: the slave's exception codes, a garbled or missing
// answer, a closed connection.
constexpr std::array failures { EMBXILFUN, EMBXILADD, EMBXILVAL, EMBXSFAIL, EMBXSBUSY, EMBXGTAR,
    EMBBADCRC, EMBBADDATA, EMBBADEXC, EMBMDATA, EMBBADSLAVE, ETIMEDOUT, ECONNRESET, EIO };

constexpr int highestRegister = 0xFFFF;

} // namespace

FuzzReaderParent::FuzzReaderParent(
    FuzzedDataProvider &input, modbus_t *context, EnergyMeterType type, quint8 address)
    : _input(input)
    , _context(context)
    , _type(type)
    , _address(address)
    , _slaveSelectable(modbus_set_slave(context, address) == 0)
{
}

std::optional<int> FuzzReaderParent::_failure(modbus_t *context, int address, int count) const
{
    ++_requests;
    FUZZ_REQUIRE(context == _context);
    FUZZ_REQUIRE(_slaveSelectable);
    FUZZ_REQUIRE(count >= 1 && count <= MODBUS_MAX_READ_REGISTERS);
    FUZZ_REQUIRE(address >= 0 && address + count - 1 <= highestRegister);
    // One request in four fails, as far as the input is concerned; none once it has run out.
    if (_input.ConsumeIntegralInRange(0, 3) != 3)
        return std::nullopt;
    return failures[_input.ConsumeIntegralInRange<std::size_t>(0, failures.size() - 1)];
}

int FuzzReaderParent::_answer(modbus_t *context, int address, int count, quint16 *destination) const
{
    if (const std::optional<int> failure = _failure(context, address, count)) {
        errno = *failure;
        return -1;
    }
    // Words as they come off the wire, high byte first; zeros once the input has run out.
    const std::vector<quint8> bytes = _input.ConsumeBytes<quint8>(std::size_t(count) * 2);
    for (int i = 0; i < count; ++i) {
        const std::size_t high = std::size_t(i) * 2;
        destination[i] = high + 1 < bytes.size() ? quint16(bytes[high] << 8 | bytes[high + 1]) : 0;
    }
    return count;
}

int FuzzReaderParent::readRegisters(
    modbus_t *context, int address, int count, quint16 *destination) const
{
    return _answer(context, address, count, destination);
}

int FuzzReaderParent::readInputRegisters(
    modbus_t *context, int address, int count, quint16 *destination) const
{
    return _answer(context, address, count, destination);
}

int FuzzReaderParent::writeRegister(modbus_t *context, int address, quint16) const
{
    if (const std::optional<int> failure = _failure(context, address, 1)) {
        errno = *failure;
        return -1;
    }
    return 1;
}

void FuzzReaderParent::errorRoutine(const QString &reason)
{
    FUZZ_REQUIRE(!reason.isEmpty());
}

void FuzzReaderParent::updateStatic(const QString &model, quint32, const QString &serial, quint32)
{
    // Zero bytes in text registers are padding, never part of the text.
    FUZZ_REQUIRE(!model.contains(QChar(0)) && !serial.contains(QChar(0)));
    ++_staticUpdates;
}

void FuzzReaderParent::publishReading(const MeterReading &reading)
{
    _readings.append(reading);
}
