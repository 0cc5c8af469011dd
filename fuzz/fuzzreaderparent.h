#pragma once

#include "meterreading.h"
#include "modbusreaderparent.h"

#include <QList>

#include <optional>

class FuzzedDataProvider;

// Stands in for the meter a driver reads for, answering its register requests from the fuzz
// input instead of a bus: each request either fails with an errno the input picks or is answered
// with words from the input. It checks every request against what libmodbus would accept and
// counts what the driver reports.
class FuzzReaderParent : public ModbusReaderParent
{
public:
    FuzzReaderParent(
        FuzzedDataProvider &input, modbus_t *context, EnergyMeterType type, quint8 address);

    int requests() const { return _requests; }
    int publishedCount() const { return _readings.size(); }
    const QList<MeterReading> &readings() const { return _readings; }
    int staticUpdates() const { return _staticUpdates; }

    // ModbusUnit
    void useContext(modbus_t *) override { }
    bool isStale() const override { return false; }
    bool isFaulty() const override { return false; }
    int unitType() const override { return 0; }
    void setDisabled(bool) override { }
    bool isDisabled() const override { return false; }
    void resetStaleValues() override { }
    int readRegisters(
        modbus_t *context, int address, int count, quint16 *destination) const override;
    int readInputRegisters(
        modbus_t *context, int address, int count, quint16 *destination) const override;
    int writeRegister(modbus_t *context, int address, quint16 value) const override;

    // ModbusReaderParent
    EnergyMeterType energyMeterType() const override { return _type; }
    quint8 modbusAddress() const override { return _address; }
    void readSucceeded() override { }
    void errorRoutine(const QString &reason) override;
    void updateStatic(
        const QString &model, quint32 idCode, const QString &serial, quint32 extra) override;
    void publishReading(const MeterReading &reading) override;

private:
    // Checks the request and takes the input's verdict on it: an errno, or nothing to succeed.
    std::optional<int> _failure(modbus_t *context, int address, int count) const;
    int _answer(modbus_t *context, int address, int count, quint16 *destination) const;

    FuzzedDataProvider &_input;
    modbus_t *const _context;
    const EnergyMeterType _type;
    const quint8 _address;
    // Whether libmodbus takes the slave address on this context: a driver must not send a
    // request to a slave it could not select.
    const bool _slaveSelectable;
    mutable int _requests = 0;
    int _staticUpdates = 0;
    QList<MeterReading> _readings;
};
