#pragma once

#include <QObject>

#include <atomic>

#include <modbus/modbus.h>

class ClockTimer;
class ModbusReaderParent;

// Base of every meter model driver: the read cycle with its retries and the request and error
// counters behind the error rate. Drivers say what a static read and a measurement read are.
class ModbusRegisterReader : public QObject
{
    Q_OBJECT

public:
    ModbusRegisterReader(ModbusReaderParent *parent, quint8 address);
    ~ModbusRegisterReader() override;

    virtual bool readStatic(modbus_t *context) = 0;
    virtual bool readValues(modbus_t *context) = 0;

    void read(modbus_t *context);
    double getErrorRate() const;
    quint32 requests() const { return _requests; }
    quint32 errors() const { return _errors; }
    bool staticReadDone() const { return _staticReadDone; }

    void setTCPContext(modbus_t *context);

    // Near the top of the request counter both counts are scaled down by 2^16, which keeps
    // their ratio and leaves room to count on.
    static void rescaleNearOverflow(quint32 &requests, quint32 &errors);

public slots:
    void startReadTimer();

protected:
    ModbusReaderParent *parentMeter() const { return _parent; }
    quint8 address() const { return _address; }
    // Selects the slave for a read; false (no traffic) when libmodbus refuses the address.
    bool selectSlave(modbus_t *context) const;

private slots:
    void _readNow();

private:
    ModbusReaderParent *_parent;
    quint8 _address;
    std::atomic<quint32> _requests { 0 };
    std::atomic<quint32> _errors { 0 };
    std::atomic<bool> _staticReadDone { false };
    ClockTimer *_readTimer = nullptr;
    modbus_t *_tcpContext = nullptr;
};
