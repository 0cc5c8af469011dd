#pragma once

#include "metermodel.h"
#include "quantity.h"
#include "registerencoding.h"

#include <QList>
#include <QtGlobal>
#include <optional>

struct QuantityRegister
{
    Quantity::Kind quantity;
    quint16 address;
    RegisterEncoding::Kind encoding;
    // The value is stored times 10^decimals.
    int decimals;
};

struct FixedRegister
{
    quint16 address;
    quint16 value;
};

struct RegisterRange
{
    quint16 first;
    quint16 count;
};

struct SerialRegisters
{
    enum Format {
        Text, // characters in the layout's text order
        NumberLswFirst, // a 32-bit number in two registers, low word first
    };

    quint16 address;
    quint16 count;
    Format format;
};

// Where a meter model keeps what, as wire addresses.
struct RegisterLayout
{
    // Function codes that read the registers: 03 (holding) and 04 (input) from the same map, or
    // only one of them.
    QList<quint8> readFunctions;
    // Every register of these ranges exists and the ones without a quantity read 0, because
    // masters read whole blocks across gaps.
    QList<RegisterRange> blocks;
    QList<QuantityRegister> quantities;
    // Read-only registers with a constant value: firmware versions and the like.
    QList<FixedRegister> fixed;
    // Configuration registers a master may write with function 06, with their initial value.
    QList<FixedRegister> writable;
    std::optional<quint16> idCodeAddress;
    quint16 defaultIdCode;
    std::optional<quint16> yearAddress;
    SerialRegisters serial;
    // Order of the characters in each text register.
    RegisterEncoding::TextOrder textOrder;

    bool reads(quint8 function) const { return readFunctions.contains(function); }

    static const RegisterLayout &of(MeterModel::Type model);
};
