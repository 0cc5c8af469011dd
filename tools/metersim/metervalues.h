#pragma once

#include "quantity.h"

#include <QByteArray>
#include <QString>
#include <array>
#include <optional>

struct RegisterLayout;

// What a meter reports, in physical units, as set by defaults, scenario files and commands.
class MeterValues
{
public:
    MeterValues(const RegisterLayout &layout, int slaveId);

    // Sets the value named by a scenario key from its text; on failure the value stays as it was
    // and error says why.
    bool set(const QString &key, const QString &text, QString *error);

    double quantity(Quantity::Kind kind) const { return _quantities[kind]; }
    void setQuantity(Quantity::Kind kind, double value) { _quantities[kind] = value; }
    quint16 idCode() const { return _idCode; }
    const QByteArray &serial() const { return _serial; }
    std::optional<quint16> year() const { return _year; }

private:
    bool parseQuantity(Quantity::Kind kind, const QString &text, QString *error);
    bool fits(Quantity::Kind kind, double value) const;
    bool parseIdCode(const QString &text, QString *error);
    bool parseYear(const QString &text, QString *error);
    bool takeSerial(const QString &text, QString *error);

    const RegisterLayout *_layout;
    std::array<double, Quantity::Count> _quantities;
    quint16 _idCode;
    QByteArray _serial;
    std::optional<quint16> _year;
};
