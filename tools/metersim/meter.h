#pragma once

#include "fault.h"
#include "metermodel.h"
#include "metervalues.h"

#include <QList>
#include <QMap>
#include <array>
#include <optional>

struct RegisterLayout;

// One simulated meter: a Modbus slave id, its model's registers and its current fault.
class Meter
{
public:
    static constexpr int FirstId = 1;
    static constexpr int LastId = 247;

    Meter(int id, MeterModel::Type model);

    // A slave id a meter may have; broadcast (0) and the reserved ids above 247 are refused.
    static std::optional<int> parseId(const QString &text);

    int id() const { return _id; }
    MeterModel::Type model() const { return _model; }
    const MeterValues &values() const { return _values; }
    // See MeterValues::set. A value set by hand shows exactly, until the next drift.
    bool set(const QString &key, const QString &text, QString *error);
    Fault::Kind fault() const { return _fault; }
    void setFault(Fault::Kind fault) { _fault = fault; }

    // Nothing when the model has no such registers for that read function.
    std::optional<QList<quint16>> read(quint8 function, quint16 address, int count) const;
    // False when the register does not exist or cannot be written.
    bool write(quint16 address, quint16 value);

    // Lets the values move on by the given time, as a live installation would.
    void drift(double seconds);

private:
    MeterValues presentedValues() const;
    void jitterVoltages();
    void integrateEnergy(double seconds);

    int _id;
    MeterModel::Type _model;
    const RegisterLayout *_layout;
    MeterValues _values;
    QMap<quint16, quint16> _writable;
    Fault::Kind _fault = Fault::None;
    // Kept apart from the values so that a set voltage stays the centre of the jitter.
    std::array<double, 3> _voltageOffsets {};
};
