#pragma once

#include <QMap>
#include <QMutex>
#include <QString>

#include <atomic>
#include <thread>

#include <modbus/modbus.h>

// A libmodbus RTU slave in a thread of the test, serving holding and input registers from one
// map of raw words, for one slave id on a serial device (one end of a PtyPair). Registers not
// set answer "illegal data address". Faults let a test drive the master's failure paths.
class RegisterSlave
{
public:
    enum class Fault { None, Silent, Exception };

    RegisterSlave(const QString &device, int slaveId);
    ~RegisterSlave();

    bool isReady() const { return _context != nullptr; }
    void setRegister(int address, quint16 value) { setRegisters(address, { value }); }
    void setRegisters(int address, const QList<quint16> &values);
    quint16 registerValue(int address) const;
    // The fault applies from the given request on (counted from 1), the ones before are served.
    void setFault(Fault fault, int fromRequest = 0)
    {
        _faultFrom = fromRequest;
        _fault = fault;
    }
    // Requests served (answered or refused) so far.
    int requestCount() const { return _requests; }

private:
    void _serve();
    void _answer(const uint8_t *request, int length);

    modbus_t *_context = nullptr;
    std::atomic<bool> _stop { false };
    std::atomic<Fault> _fault { Fault::None };
    std::atomic<int> _requests { 0 };
    std::atomic<int> _faultFrom { 0 };
    mutable QMutex _mutex;
    QMap<int, quint16> _registers;
    std::thread _thread;
};
