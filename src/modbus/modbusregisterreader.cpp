#include "modbusregisterreader.h"

#include "clocktimer.h"
#include "modbuslogging.h"
#include "modbusreaderparent.h"

#include <cerrno>
#include <limits>

namespace {

constexpr int attemptsPerPoll = 3;
constexpr int tcpReadIntervalMs = 100;
constexpr quint32 requestsRescaleAt = 0xFFFFFFEF;
constexpr quint32 requestsAfterRescale = 65535;

} // namespace

ModbusRegisterReader::ModbusRegisterReader(ModbusReaderParent *parent, quint8 address)
    : _parent(parent)
    , _address(address)
{
}

ModbusRegisterReader::~ModbusRegisterReader()
{
    delete _readTimer;
}

bool ModbusRegisterReader::selectSlave(modbus_t *context) const
{
    return ModbusUnit::selectSlave(context, _address);
}

void ModbusRegisterReader::read(modbus_t *context)
{
    if (!_staticReadDone)
        _staticReadDone = readStatic(context);

    bool succeeded = false;
    for (int attempt = 0; attempt < attemptsPerPoll && !succeeded; ++attempt) {
        ++_requests;
        succeeded = readValues(context);
    }
    if (succeeded) {
        _parent->readSucceeded();
    } else {
        _parent->errorRoutine(QString::fromLatin1(modbus_strerror(errno)));
        ++_errors;
    }

    quint32 requests = _requests;
    quint32 errors = _errors;
    rescaleNearOverflow(requests, errors);
    _requests = requests;
    _errors = errors;
}

void ModbusRegisterReader::rescaleNearOverflow(quint32 &requests, quint32 &errors)
{
    if (requests < requestsRescaleAt)
        return;
    requests = requestsAfterRescale;
    errors >>= 16;
}

double ModbusRegisterReader::getErrorRate() const
{
    if (_requests == 0)
        return std::numeric_limits<double>::quiet_NaN();
    return double(_errors) / double(_requests) * 100.0;
}

void ModbusRegisterReader::setTCPContext(modbus_t *context)
{
    if (_parent->energyMeterType() != EnergyMeterTypes::ModbusTcp) {
        qCCritical(lcModbusReader)
            << __func__ << "parent meter has to be modbus TCP to set context";
        return;
    }
    if (!context) {
        qCCritical(lcModbusReader) << __func__ << "context is not valid";
        return;
    }
    _tcpContext = context;
}

void ModbusRegisterReader::startReadTimer()
{
    if (_parent->energyMeterType() != EnergyMeterTypes::ModbusTcp) {
        qCCritical(lcModbusReader)
            << __func__ << "parent meter has to be modbus TCP, not starting read timer";
        return;
    }
    if (!_readTimer)
        _readTimer = new ClockTimer;
    if (_readTimer->isActive())
        return;
    connect(_readTimer, &ClockTimer::timeout, this, &ModbusRegisterReader::_readNow,
        Qt::UniqueConnection);
    _readTimer->start(tcpReadIntervalMs);
}

void ModbusRegisterReader::_readNow()
{
    if (_tcpContext)
        read(_tcpContext);
}
