#include "modbusmeter.h"

#include "clocktimer.h"
#include "drivercatalogue.h"
#include "driverlogging.h"
#include "modbusregisterreader.h"

#include <QElapsedTimer>
#include <QMutexLocker>

#include <cerrno>
#include <cmath>
#include <limits>

namespace {

constexpr qint64 pollIntervalMs = 1001;
constexpr qint64 faultyAfterMs = 120000;
constexpr qint64 staleAfterMs = 120000;
constexpr qint64 connectionLostAfterMs = 15000;
constexpr qint64 meterErrorAfterMs = 3600000;
constexpr qint64 meterErrorRepeatMs = 86400000;
constexpr int errorSummaryIntervalMs = 900000;
constexpr int idCodeRegister = 11;

constexpr float nanF = std::numeric_limits<float>::quiet_NaN();
constexpr double nanD = std::numeric_limits<double>::quiet_NaN();

bool samePhaseValue(float a, float b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

bool validPhase(int phase)
{
    return phase >= 1 && phase <= 3;
}

} // namespace

ModbusMeter::ModbusMeter(quint8 address, EnergyMeterType type, QObject *parent)
    : QObject(parent)
    , EnergyMeter(QStringLiteral("modbus.") + QString::number(address))
    , _address(address)
    , _type(type)
    , _frequency(nanF)
    , _power(nanF)
    , _energy(nanD)
    , _energyExported(nanD)
    , _sessionStartEnergy(nanD)
    , _sessionStartEnergyExported(nanD)
    , _errorSummaryTimer(new ClockTimer(this))
{
    setPauseMs(0);
    for (int i = 0; i < 3; ++i) {
        _current[i] = nanF;
        _voltage[i] = nanF;
        _powerFactor[i] = nanF;
    }
    if (!QElapsedTimer::isMonotonic())
        qCWarning(lcModbusMeter) << "ModbusMeter"
                                 << "Elapsed timers are not using monotonic clock! Issues can "
                                    "occur if system time is changed backwards!";
    qCDebug(lcModbusMeter) << "ModbusMeter" << address << " has Modbus address: " << address;

    connect(_errorSummaryTimer, &ClockTimer::timeout, this, &ModbusMeter::_outputErrorLog);
    _errorSummaryTimer->start(errorSummaryIntervalMs);
    connect(
        this, &ModbusMeter::newReading, this, &ModbusMeter::_storeReading, Qt::QueuedConnection);
}

ModbusMeter::~ModbusMeter()
{
    delete _driver.load();
}

QString ModbusMeter::codeToString(quint32 code)
{
    qCDebug(lcModbusMeter) << "codeToString" << code;
    const DriverCatalogue::Entry *entry = DriverCatalogue::find(code);
    return QString::fromLatin1(entry ? entry->model : "UNKNOWN");
}

void ModbusMeter::useContext(modbus_t *context)
{
    if (_disabled)
        return;
    if (ModbusRegisterReader *driver = _driver) {
        if (_sinceReading.elapsed() < pollIntervalMs)
            return;
        _sinceReading.start();
        driver->read(context);
        return;
    }

    if (ModbusRegisterReader *driver = _detectMeterType(context)) {
        _driver = driver;
        _absenceReported = false;
        qCInfo(lcModbusMeter) << __func__ << "Meter detected: " << _address;
        return;
    }
    if (_absenceReported)
        return;
    qCCritical(lcModbusMeter) << __func__ << "No meter detected:" << _address;
    _absenceReported = true;
}

// A meter not yet identified tries at every turn; a disabled one is looked at again each poll
// interval, so that it comes back into service soon after it is enabled.
qint64 ModbusMeter::msUntilDue() const
{
    if (_disabled)
        return pollIntervalMs;
    if (!_driver)
        return 0;
    return qMax<qint64>(0, pollIntervalMs - _sinceReading.elapsed());
}

ModbusRegisterReader *ModbusMeter::_detectMeterType(modbus_t *context)
{
    if (const DriverCatalogue::ConfiguredEntry *configured
        = DriverCatalogue::findConfigured(_type)) {
        qCDebug(lcModbusMeter) << __func__ << configured->created;
        return configured->create(this, _address);
    }

    quint16 code = 0;
    if (!ModbusUnit::selectSlave(context, _address)
        || readRegisters(context, idCodeRegister, 1, &code) == -1) {
        const QString reason = QStringLiteral("Could not read meter ID on address: %1 Reason: %2")
                                   .arg(_address)
                                   .arg(QString::fromLatin1(modbus_strerror(errno)));
        errorRoutine(reason);
        if (!_absenceReported)
            qCWarning(lcModbusMeter).noquote() << __func__ << reason;
        return nullptr;
    }
    qCDebug(lcModbusMeter) << __func__ << code;
    return _driverForCode(code);
}

ModbusRegisterReader *ModbusMeter::_driverForCode(quint32 code)
{
    const DriverCatalogue::Entry *entry = DriverCatalogue::find(code);
    if (!entry || !entry->create) {
        qCDebug(lcModbusMeter) << "_detectMeterType"
                               << "ID Code does not match any known modbus meter: " << code;
        return nullptr;
    }
    if (QByteArrayView(entry->detected).endsWith("Code: "))
        qCDebug(lcModbusMeter) << "_detectMeterType" << entry->detected << code;
    else
        qCDebug(lcModbusMeter) << "_detectMeterType" << entry->detected;
    if (entry->variant)
        qCDebug(lcModbusMeter) << "_detectMeterType" << entry->variant;
    if (entry->minimumPauseMs != 0) {
        setPauseMs(0);
        ModbusUnit::raiseMinimumPauseMs(entry->minimumPauseMs);
    }
    return entry->create(this, _address);
}

void ModbusMeter::readSucceeded()
{
    _sinceSuccessfulRead.start();
}

void ModbusMeter::_setMeasurementsToNaN()
{
    for (int i = 0; i < 3; ++i) {
        _current[i] = nanF;
        _voltage[i] = nanF;
        _powerFactor[i] = nanF;
    }
    _frequency = nanF;
    _power = nanF;
    _energy = nanD;
}

void ModbusMeter::errorRoutine(const QString &reason)
{
    _setMeasurementsToNaN();
    {
        const QMutexLocker lock(&_tallyMutex);
        ++_errorTally[reason];
    }

    const qint64 silentMs = _sinceSuccessfulRead.elapsed();
    if (silentMs <= connectionLostAfterMs)
        return;
    if (silentMs > meterErrorAfterMs && _sinceMeterError.hasExpired(meterErrorRepeatMs)) {
        _sinceMeterError.start();
        emit meterError(reason);
    }
    emit connectionLost();
}

void ModbusMeter::resetStaleValues()
{
    errorRoutine(QStringLiteral("Stale value reset"));
}

void ModbusMeter::updateStatic(
    const QString &model, quint32 idCode, const QString &serial, quint32 extra)
{
    qCDebug(lcModbusMeter) << __func__ << "meter idCode:" << model << "serial:" << serial;
    {
        const QMutexLocker lock(&_staticMutex);
        _model = model;
        _serial = serial;
    }
    _idCode = idCode;
    _staticExtra = extra;
    emit meterDetected(idCode);
}

void ModbusMeter::publishReading(const MeterReading &reading)
{
    emit newReading(reading.current[0], reading.current[1], reading.current[2], reading.voltage[0],
        reading.voltage[1], reading.voltage[2], reading.powerFactor[0], reading.powerFactor[1],
        reading.powerFactor[2], reading.frequency, reading.power, reading.energy,
        reading.energyExported);
}

void ModbusMeter::_storeReading(float current1, float current2, float current3, float voltage1,
    float voltage2, float voltage3, float powerFactor1, float powerFactor2, float powerFactor3,
    float frequency, float power, double energy, double energyExport)
{
    _sinceReading.start();
    if (!samePhaseValue(voltage1, _voltage[0]) || !samePhaseValue(voltage2, _voltage[1])
        || !samePhaseValue(voltage3, _voltage[2]))
        _sinceVoltageChange.start();

    const float currents[3] = { current1, current2, current3 };
    const float voltages[3] = { voltage1, voltage2, voltage3 };
    const float powerFactors[3] = { powerFactor1, powerFactor2, powerFactor3 };
    for (int i = 0; i < 3; ++i) {
        _current[i] = currents[i];
        _voltage[i] = voltages[i];
        _powerFactor[i] = powerFactors[i];
    }
    _frequency = frequency;
    _power = power;
    _energy = energy;
    _energyExported = energyExport;

    _readingReceived();
    emit valuesUpdated();
}

void ModbusMeter::setDisabled(bool disabled)
{
    if (disabled == _disabled)
        return;
    qCInfo(lcModbusMeter) << __func__
                          << (disabled ? "disabling modbus communication for meter at address"
                                       : "enabling modbus communication for meter at address")
                          << _address;
    _disabled = disabled;
}

bool ModbusMeter::isStale() const
{
    return _sinceVoltageChange.hasExpired(staleAfterMs);
}

bool ModbusMeter::isFaulty() const
{
    // The poll limiter restarts at every poll, so silence is measured from the last good read.
    return _sinceSuccessfulRead.hasExpired(faultyAfterMs);
}

QString ModbusMeter::info() const
{
    const QMutexLocker lock(&_staticMutex);
    return _model + QLatin1Char(':') + _serial;
}

void ModbusMeter::startSession()
{
    _sessionStartEnergy = _energy.load();
    _sessionStartEnergyExported = _energyExported.load();
}

// The D-Bus service passes the phase unchecked; anything but 1 to 3 has no value.
double ModbusMeter::current(int phase) const
{
    return validPhase(phase) ? double(_current[phase - 1]) : nanD;
}

double ModbusMeter::voltage(int phase) const
{
    return validPhase(phase) ? double(_voltage[phase - 1]) : nanD;
}

double ModbusMeter::powerFactor(int phase) const
{
    return validPhase(phase) ? double(_powerFactor[phase - 1]) : nanD;
}

double ModbusMeter::sessionEnergy() const
{
    return _energy - _sessionStartEnergy;
}

double ModbusMeter::sessionEnergyExported() const
{
    return _energyExported - _sessionStartEnergyExported;
}

double ModbusMeter::getErrorRate() const
{
    const ModbusRegisterReader *driver = _driver;
    return driver ? driver->getErrorRate() : nanD;
}

QMap<QString, int> ModbusMeter::errorTally() const
{
    const QMutexLocker lock(&_tallyMutex);
    return _errorTally;
}

void ModbusMeter::_outputErrorLog()
{
    QMap<QString, int> tally;
    {
        const QMutexLocker lock(&_tallyMutex);
        tally.swap(_errorTally);
    }
    if (tally.isEmpty())
        return;
    QString model;
    QString serial;
    {
        const QMutexLocker lock(&_staticMutex);
        model = _model;
        serial = _serial;
    }
    qCCritical(lcModbusMeter).noquote()
        << __func__
        << QStringLiteral("Errors for %1 (%2) during the last %3 seconds:")
               .arg(model, serial)
               .arg(_errorSummaryTimer->interval() / 1000);
    for (auto it = tally.cbegin(); it != tally.cend(); ++it)
        qCCritical(lcModbusMeter) << __func__ << it.key() << "occured" << it.value() << "times";
}
