#include "modbusunit.h"

#include <QThread>

#include <cerrno>

namespace {
std::atomic<int> minimumPause { 4 };
}

ModbusUnit::~ModbusUnit() = default;

int ModbusUnit::minimumPauseMs()
{
    return minimumPause;
}

void ModbusUnit::raiseMinimumPauseMs(int ms)
{
    int current = minimumPause;
    while (ms > current && !minimumPause.compare_exchange_weak(current, ms)) { }
}

bool ModbusUnit::selectSlave(modbus_t *context, int address)
{
    if (!context) {
        errno = EBADF;
        return false;
    }
    modbus_flush(context);
    return modbus_set_slave(context, address) == 0;
}

void ModbusUnit::_pause() const
{
    ++_requestCount;
    QThread::msleep(ulong(qMax(_pauseMs.load(), minimumPause.load())));
}

int ModbusUnit::readRegisters(modbus_t *context, int address, int count, quint16 *destination) const
{
    if (!context) {
        errno = EBADF;
        return -1;
    }
    _pause();
    return modbus_read_registers(context, address, count, destination);
}

int ModbusUnit::readInputRegisters(
    modbus_t *context, int address, int count, quint16 *destination) const
{
    if (!context) {
        errno = EBADF;
        return -1;
    }
    _pause();
    return modbus_read_input_registers(context, address, count, destination);
}

int ModbusUnit::writeRegister(modbus_t *context, int address, quint16 value) const
{
    if (!context) {
        errno = EBADF;
        return -1;
    }
    _pause();
    return modbus_write_register(context, address, value);
}
