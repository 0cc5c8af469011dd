#pragma once

#include "elapsedclock.h"
#include "energymeter.h"
#include "modbusreaderparent.h"

#include <QMap>
#include <QMutex>
#include <QObject>

#include <atomic>

class ClockTimer;
class ModbusRegisterReader;

// The energy meter at one slave address of an RS-485 channel. On its first answer it reads the
// identification code and picks the model driver; from then on each poll (in the channel's
// reader thread) is handed to the driver, whose readings reach this object's thread through
// the queued newReading signal.
class ModbusMeter : public QObject, public EnergyMeter, public ModbusReaderParent
{
    Q_OBJECT

public:
    ModbusMeter(quint8 address, EnergyMeterType type, QObject *parent = nullptr);
    ~ModbusMeter() override;

    static QString codeToString(quint32 code);

    // ModbusUnit
    void useContext(modbus_t *context) override;
    bool isStale() const override;
    bool isFaulty() const override;
    int unitType() const override { return 0; }
    void setDisabled(bool disabled) override;
    bool isDisabled() const override { return _disabled; }
    void resetStaleValues() override;
    qint64 msUntilDue() const override;

    // ModbusReaderParent
    EnergyMeterType energyMeterType() const override { return _type; }
    quint8 modbusAddress() const override { return _address; }
    void readSucceeded() override;
    void errorRoutine(const QString &reason) override;
    void updateStatic(
        const QString &model, quint32 idCode, const QString &serial, quint32 extra) override;
    void publishReading(const MeterReading &reading) override;

    // EnergyMeter
    QString info() const override;
    quint32 staticExtra() const override { return _staticExtra; }
    void startSession() override;
    double current(int phase) const override;
    double voltage(int phase) const override;
    double totalEnergy() const override { return _energy; }
    double totalEnergyExported() const override { return _energyExported; }
    double power() const override { return _power; }
    double getErrorRate() const override;
    double frequency() const override { return _frequency; }
    double powerFactor(int phase) const override;
    double sessionEnergy() const override;
    double sessionEnergyExported() const override;

    bool isDetected() const { return _driver != nullptr; }
    quint32 idCode() const { return _idCode; }
    QMap<QString, int> errorTally() const;

signals:
    void valuesUpdated();
    void newReading(float current1, float current2, float current3, float voltage1, float voltage2,
        float voltage3, float powerFactor1, float powerFactor2, float powerFactor3, float frequency,
        float power, double energy, double energyExport);
    void meterDetected(quint32 idCode);
    void meterError(const QString &alarm);
    void connectionLost();

private slots:
    void _storeReading(float current1, float current2, float current3, float voltage1,
        float voltage2, float voltage3, float powerFactor1, float powerFactor2, float powerFactor3,
        float frequency, float power, double energy, double energyExport);
    void _outputErrorLog();

private:
    ModbusRegisterReader *_detectMeterType(modbus_t *context);
    ModbusRegisterReader *_driverForCode(quint32 code);
    void _setMeasurementsToNaN();

    const quint8 _address;
    const EnergyMeterType _type;
    std::atomic<bool> _disabled { false };
    bool _absenceReported = false;
    std::atomic<ModbusRegisterReader *> _driver { nullptr };

    std::atomic<float> _current[3];
    std::atomic<float> _voltage[3];
    std::atomic<float> _powerFactor[3];
    std::atomic<float> _frequency;
    std::atomic<float> _power;
    std::atomic<double> _energy;
    std::atomic<double> _energyExported;
    std::atomic<double> _sessionStartEnergy;
    std::atomic<double> _sessionStartEnergyExported;

    mutable QMutex _staticMutex;
    QString _model;
    QString _serial;
    std::atomic<quint32> _idCode { 0 };
    std::atomic<quint32> _staticExtra { 0 };

    mutable QMutex _tallyMutex;
    QMap<QString, int> _errorTally;

    ElapsedClock _sinceReading;
    ElapsedClock _sinceVoltageChange;
    ElapsedClock _sinceSuccessfulRead;
    ElapsedClock _sinceMeterError;
    ClockTimer *_errorSummaryTimer;
};
