#pragma once

#include "metermodel.h"
#include "quantity.h"

#include <QList>
#include <QtGlobal>
#include <optional>

struct QuantityRegister
{
    // Carlo Gavazzi meters send scaled integers, less significant word first; Siemens meters
    // send IEEE-754 values, most significant word first.
    enum Encoding { Scaled, Float32MswFirst, Float64MswFirst };

    Quantity::Kind quantity;
    quint16 address;
    Encoding encoding = Scaled;
};

struct FixedRegister
{
    quint16 address;
    quint16 value;
};

// Where a meter model keeps what, as wire addresses of holding registers.
struct RegisterLayout
{
    static constexpr quint16 IdCodeAddress = 11;

    // Registers 0 .. measurementCount - 1 all exist, the ones without a quantity read 0, because
    // masters read whole blocks across gaps.
    quint16 measurementCount;
    QList<QuantityRegister> quantities;
    // Read-only registers with a constant value: firmware versions and the like.
    QList<FixedRegister> fixed;
    // Configuration registers a master may write with function 06, with their initial value.
    QList<FixedRegister> writable;
    std::optional<quint16> yearAddress;
    quint16 serialAddress;
    quint16 serialRegisters;
    quint16 defaultIdCode;

    static const RegisterLayout &of(MeterModel::Type model);
};
