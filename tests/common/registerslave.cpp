#include "registerslave.h"

#include <QMutexLocker>

#include <vector>

RegisterSlave::RegisterSlave(const QString &device, int slaveId)
{
    _context = modbus_new_rtu(device.toLocal8Bit().constData(), 9600, 'N', 8, 1);
    if (!_context)
        return;
    modbus_set_slave(_context, slaveId);
    if (modbus_connect(_context) == -1) {
        modbus_free(_context);
        _context = nullptr;
        return;
    }
    // Short receive waits so the thread notices a stop request quickly.
    modbus_set_indication_timeout(_context, 0, 100000);
    _thread = std::thread([this] { _serve(); });
}

RegisterSlave::~RegisterSlave()
{
    _stop = true;
    if (_thread.joinable())
        _thread.join();
    if (_context) {
        modbus_close(_context);
        modbus_free(_context);
    }
}

void RegisterSlave::setRegisters(int address, const QList<quint16> &values)
{
    const QMutexLocker lock(&_mutex);
    for (int i = 0; i < values.size(); ++i)
        _registers.insert(address + i, values.at(i));
}

quint16 RegisterSlave::registerValue(int address) const
{
    const QMutexLocker lock(&_mutex);
    return _registers.value(address);
}

void RegisterSlave::_serve()
{
    uint8_t request[MODBUS_RTU_MAX_ADU_LENGTH];
    while (!_stop) {
        const int length = modbus_receive(_context, request);
        if (length <= 0)
            continue;
        const Fault fault = ++_requests >= _faultFrom ? _fault.load() : Fault::None;
        if (fault == Fault::Silent)
            continue;
        if (fault == Fault::Exception) {
            modbus_reply_exception(_context, request, MODBUS_EXCEPTION_SLAVE_OR_SERVER_FAILURE);
            continue;
        }
        _answer(request, length);
    }
}

void RegisterSlave::_answer(const uint8_t *request, int length)
{
    // RTU frame: slave id, function, then big-endian address and count or value.
    const int function = request[1];
    const int address = (request[2] << 8) | request[3];
    const int count = (request[4] << 8) | request[5];
    const QMutexLocker lock(&_mutex);

    if (function == MODBUS_FC_WRITE_SINGLE_REGISTER) {
        _registers.insert(address, quint16(count));
    } else if (function == MODBUS_FC_READ_HOLDING_REGISTERS
        || function == MODBUS_FC_READ_INPUT_REGISTERS) {
        for (int i = 0; i < count; ++i) {
            if (!_registers.contains(address + i)) {
                modbus_reply_exception(_context, request, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS);
                return;
            }
        }
    } else {
        modbus_reply_exception(_context, request, MODBUS_EXCEPTION_ILLEGAL_FUNCTION);
        return;
    }

    // libmodbus answers from a mapping that starts at the requested address.
    const int size = qMax(count, 1);
    modbus_mapping_t *mapping
        = modbus_mapping_new_start_address(0, 0, 0, 0, address, size, address, size);
    for (int i = 0; i < count && function != MODBUS_FC_WRITE_SINGLE_REGISTER; ++i) {
        mapping->tab_registers[i] = _registers.value(address + i);
        mapping->tab_input_registers[i] = _registers.value(address + i);
    }
    modbus_reply(_context, request, length, mapping);
    modbus_mapping_free(mapping);
}
