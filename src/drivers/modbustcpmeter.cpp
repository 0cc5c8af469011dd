#include "modbustcpmeter.h"

#include "clock.h"
#include "clocktimer.h"
#include "driverlogging.h"
#include "modbusdeviceidentification.h"
#include "modbusem24.h"
#include "modbussiemenspac3220.h"

#include <QThread>

#include <array>
#include <cerrno>
#include <limits>

namespace {

constexpr int retryIntervalMs = 10000;
constexpr qint64 reconnectIntervalMs = 10000;
constexpr int responseTimeoutUs = 500000;
constexpr int modelCodeRegister = 11;
constexpr quint8 productCodeObject = 1;
constexpr quint8 tcpDriverAddress = 0;

constexpr int firstEm24Code = 1648;
constexpr std::array<const char *, 6> em24Names { "EM24DINAV23XE1X", "EM24DINAV23XE1PFA",
    "EM24DINAV23XE1PFB", "EM24DINAV53XE1X", "EM24DINAV53XE1PFA", "EM24DINAV53XE1PFB" };

bool isEm24Code(int code)
{
    return code >= firstEm24Code && code < firstEm24Code + int(em24Names.size());
}

ClockTimer *singleShotTimer(QObject *parent)
{
    auto *timer = new ClockTimer(parent);
    timer->setSingleShot(true);
    timer->setInterval(retryIntervalMs);
    return timer;
}

} // namespace

ModbusTCPMeter::ModbusTCPMeter(
    const QString &ipAddress, int port, bool modbusDebug, QObject *parent)
    : ModbusMeter(tcpDriverAddress, EnergyMeterTypes::ModbusTcp, parent)
    , _ipAddress(ipAddress)
    , _port(quint16(port))
    , _context(modbus_new_tcp(ipAddress.toLocal8Bit().constData(), port))
    , _connectRetryTimer(singleShotTimer(this))
    , _detectionRetryTimer(singleShotTimer(this))
{
    connect(_connectRetryTimer, &ClockTimer::timeout, this, &ModbusTCPMeter::_connect);
    connect(_detectionRetryTimer, &ClockTimer::timeout, this, &ModbusTCPMeter::_startReaderThread);
    if (!_context) {
        // Nothing can be done with this address: the meter stays not found.
        qCCritical(lcModbusMeterTcp)
            << "ModbusTCPMeter"
            << "could not create a Modbus TCP context for meter at" << _ipAddress << "port" << _port
            << ":" << modbus_strerror(errno);
        return;
    }
    modbus_set_response_timeout(_context, 0, responseTimeoutUs);
    modbus_set_debug(_context, modbusDebug);
    _connect();
    connect(this, &ModbusMeter::connectionLost, this, &ModbusTCPMeter::_reconnect);
}

ModbusTCPMeter::~ModbusTCPMeter()
{
    // The reader stops before the context goes, so that no poll runs on a freed context; the
    // reader itself is deleted in its thread as the thread finishes.
    if (_readerThread) {
        _readerThread->quit();
        _readerThread->wait();
        delete _readerThread;
    } else {
        delete _registerReader;
    }
    if (_context) {
        modbus_close(_context);
        modbus_free(_context);
        _context = nullptr;
    }
    if (_deviceIdentification)
        _deviceIdentification->deleteLater();
}

QString ModbusTCPMeter::codeToString(int code)
{
    return QString::fromLatin1(isEm24Code(code) ? em24Names[code - firstEm24Code] : "UNKNOWN");
}

double ModbusTCPMeter::getErrorRate() const
{
    return _registerReader ? _registerReader->getErrorRate()
                           : std::numeric_limits<double>::quiet_NaN();
}

void ModbusTCPMeter::_connect()
{
    if (modbus_connect(_context) != 0) {
        qCCritical(lcModbusMeterTcp) << __func__ << "failed to connect to meter at" << _ipAddress;
        _connectRetryTimer->start();
        return;
    }
    qCInfo(lcModbusMeterTcp) << __func__ << "connected to meter at" << _ipAddress;
    _startReaderThread();
}

void ModbusTCPMeter::_startReaderThread()
{
    _registerReader = _detectMeterType();
    if (!_registerReader) {
        _detectionRetryTimer->start();
        return;
    }
    qCInfo(lcModbusMeterTcp) << __func__ << "starting reader thread for" << _ipAddress;
    _registerReader->setTCPContext(_context);
    _readerThread = new QThread;
    _readerThread->setObjectName(QStringLiteral("modbus.tcp.") + _ipAddress);
    _registerReader->moveToThread(_readerThread);
    connect(
        _readerThread, &QThread::started, _registerReader, &ModbusRegisterReader::startReadTimer);
    connect(_readerThread, &QThread::finished, _registerReader, &QObject::deleteLater);
    _readerThread->start(QThread::InheritPriority);
}

ModbusRegisterReader *ModbusTCPMeter::_detectMeterType()
{
    if (!_deviceIdentification) {
        _deviceIdentification = new ModbusDeviceIdentification(_ipAddress, this);
        return nullptr;
    }
    if (_deviceIdentification->state() == ModbusDeviceIdentification::Pending)
        return nullptr;
    if (_deviceIdentification->state() == ModbusDeviceIdentification::Succeeded) {
        if (ModbusRegisterReader *driver = _detectMeterTypeFromDeviceId())
            return driver;
    }

    quint16 code = 0;
    if (readRegisters(_context, modelCodeRegister, 1, &code) == -1 || !isEm24Code(code))
        return nullptr;
    qCDebug(lcModbusMeterTcp) << __func__
                              << "Carlo Gavazzi EM24 series ModbusTCP Meter detected! Code" << code;
    return new ModbusEM24(this, tcpDriverAddress);
}

ModbusRegisterReader *ModbusTCPMeter::_detectMeterTypeFromDeviceId()
{
    if (_deviceIdentification->object(productCodeObject) != QLatin1String("PAC3220"))
        return nullptr;
    qCDebug(lcModbusMeterTcp) << __func__ << "Siemens PAC3220 ModbusTCP Meter detected!";
    return new ModbusSiemensPAC3220(this, tcpDriverAddress);
}

void ModbusTCPMeter::_reconnect()
{
    const qint64 nowMs = Clock::nowMs();
    if (_lastReconnectAttemptMs && nowMs - *_lastReconnectAttemptMs <= reconnectIntervalMs)
        return;
    _lastReconnectAttemptMs = nowMs;
    // The reader keeps polling; reconnecting between two of its polls keeps the context to
    // one thread at a time.
    if (_registerReader && _readerThread)
        QMetaObject::invokeMethod(_registerReader, [this] { _reconnectContext(); });
    else
        _reconnectContext();
}

void ModbusTCPMeter::_reconnectContext()
{
    // libmodbus opens a new socket on every connect; the old one would stay open for good.
    modbus_close(_context);
    if (modbus_connect(_context) != 0) {
        qCWarning(lcModbusMeterTcp) << "_reconnect"
                                    << "failed to reconnect to meter at" << _ipAddress;
        return;
    }
    qCInfo(lcModbusMeterTcp) << "_reconnect"
                             << "reconnected to meter at" << _ipAddress;
}
