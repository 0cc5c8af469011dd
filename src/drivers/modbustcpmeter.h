#pragma once

#include "modbusmeter.h"

#include <QString>

#include <atomic>
#include <optional>

#include <modbus/modbus.h>

class ClockTimer;
class ModbusDeviceIdentification;
class ModbusRegisterReader;
class QThread;

// An energy meter reached over Modbus TCP. It owns its own libmodbus context: it connects,
// works out which model answers at the address (a Siemens PAC3220 by its device identification,
// or a Carlo Gavazzi EM24 by its model code) and then runs that model's driver in a reader
// thread of its own, polling every 100 ms. Lives on the main thread, where connecting,
// detection and their 10 s retries run.
class ModbusTCPMeter : public ModbusMeter
{
    Q_OBJECT

public:
    ModbusTCPMeter(
        const QString &ipAddress, int port, bool modbusDebug = false, QObject *parent = nullptr);
    ~ModbusTCPMeter() override;

    static QString codeToString(int code);

    QString ipAddress() const { return _ipAddress; }
    double getErrorRate() const override;

private slots:
    void _reconnect();

private:
    void _connect();
    void _startReaderThread();
    ModbusRegisterReader *_detectMeterType();
    ModbusRegisterReader *_detectMeterTypeFromDeviceId();
    // Runs in the reader's thread, so that the context is never used by two threads at once.
    void _reconnectContext();

    const QString _ipAddress;
    const quint16 _port;
    modbus_t *_context;
    ModbusDeviceIdentification *_deviceIdentification = nullptr;
    ModbusRegisterReader *_registerReader = nullptr;
    QThread *_readerThread = nullptr;
    std::optional<qint64> _lastReconnectAttemptMs;
    ClockTimer *_connectRetryTimer;
    ClockTimer *_detectionRetryTimer;
};
