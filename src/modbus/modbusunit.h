#pragma once

#include <QtGlobal>

#include <atomic>

#include <modbus/modbus.h>

// Anything a channel's context queue serves. Every register access goes through the paced
// helpers below: they give slow meters quiet time on the bus before each request, and they
// refuse a missing context or a slave address libmodbus does not take, so a request never
// reaches the wrong device.
class ModbusUnit
{
public:
    virtual ~ModbusUnit();

    virtual void useContext(modbus_t *context) = 0;
    virtual bool isStale() const = 0;
    virtual bool isFaulty() const = 0;
    virtual int unitType() const = 0;
    virtual void setDisabled(bool disabled) = 0;
    virtual bool isDisabled() const = 0;
    // Called by the queue when the unit's values froze.
    virtual void resetStaleValues() = 0;
    // How long until the unit next has work for the bus. A turn of the queue in which no unit
    // made a request rests until the first is due instead of looking again at once.
    virtual qint64 msUntilDue() const { return 0; }

    // Requests this unit has put on the bus, so the queue can tell a turn without traffic.
    quint64 requestCount() const { return _requestCount; }

    void setPauseMs(int ms) { _pauseMs = ms; }
    int pauseMs() const { return _pauseMs; }
    static int minimumPauseMs();
    static void raiseMinimumPauseMs(int ms);

    // These return false or -1 with errno set on failure, like libmodbus itself. The register
    // transfers are virtual so that a stand-in unit can answer them without a bus.
    static bool selectSlave(modbus_t *context, int address);
    virtual int readRegisters(
        modbus_t *context, int address, int count, quint16 *destination) const;
    virtual int readInputRegisters(
        modbus_t *context, int address, int count, quint16 *destination) const;
    virtual int writeRegister(modbus_t *context, int address, quint16 value) const;

private:
    void _pause() const;

    std::atomic<int> _pauseMs { 0 };
    mutable std::atomic<quint64> _requestCount { 0 };
};
