#include "metervalues.h"

#include "logging.h"
#include "registerlayout.h"

#include <cmath>

namespace {

constexpr std::array<double, Quantity::Count> DefaultQuantities {
    230.0, 231.0, 229.5, // voltages
    5.0, 5.2, 4.9, // currents
    3405.5, // power
    0.98, 0.97, 0.99, // power factors
    50.0, // frequency
    1234.5, // imported energy
    12.3, // exported energy
    1124.6, // apparent power of phase 3
    0.0, // imported energy, second tariff
};

constexpr quint16 DefaultYear = 2021;

std::optional<quint16> parseRegister(const QString &text)
{
    bool ok = false;
    const quint16 value = text.toUShort(&ok);
    return ok ? std::optional(value) : std::nullopt;
}

// A serial unique per slave id; as text it fills the model's serial registers exactly.
QString defaultSerial(const RegisterLayout &layout, int slaveId)
{
    if (layout.serial.format == SerialRegisters::NumberLswFirst)
        return QString::number(slaveId);
    const QString prefix = QStringLiteral("SIM");
    return prefix
        + QString::number(slaveId).rightJustified(
            layout.serial.count * 2 - prefix.size(), QLatin1Char('0'));
}

}

MeterValues::MeterValues(const RegisterLayout &layout, int slaveId)
    : _layout(&layout)
    , _quantities(DefaultQuantities)
    , _idCode(layout.defaultIdCode)
    , _year(layout.yearAddress ? std::optional(DefaultYear) : std::nullopt)
{
    QString error;
    takeSerial(defaultSerial(layout, slaveId), &error);
}

bool MeterValues::set(const QString &key, const QString &text, QString *error)
{
    if (const auto kind = Quantity::fromKey(key))
        return parseQuantity(*kind, text, error);
    if (key.compare(u"idcode", Qt::CaseInsensitive) == 0)
        return parseIdCode(text, error);
    if (key.compare(u"year", Qt::CaseInsensitive) == 0)
        return parseYear(text, error);
    if (key.compare(u"serial", Qt::CaseInsensitive) == 0)
        return takeSerial(text, error);
    *error = QStringLiteral("unknown key %1 (known: %2 idcode serial year)")
                 .arg(key, Quantity::keys().join(u' '));
    return false;
}

bool MeterValues::parseQuantity(Quantity::Kind kind, const QString &text, QString *error)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !fits(kind, value)) {
        *error = QStringLiteral("bad value %1 for %2").arg(text, Quantity::key(kind));
        return false;
    }
    _quantities[kind] = value;
    return true;
}

// A value must survive every register the model keeps it in; a model without such a register
// takes any number and ignores it.
bool MeterValues::fits(Quantity::Kind kind, double value) const
{
    if (!std::isfinite(value))
        return false;
    for (const QuantityRegister &slot : _layout->quantities) {
        if (slot.quantity == kind && !RegisterEncoding::fits(slot.encoding, slot.decimals, value))
            return false;
    }
    return true;
}

bool MeterValues::parseIdCode(const QString &text, QString *error)
{
    const auto code = parseRegister(text);
    if (!code) {
        *error = QStringLiteral("bad identification code %1 (0..65535)").arg(text);
        return false;
    }
    _idCode = *code;
    return true;
}

// "none" takes the year register away, for masters that must cope with meters lacking it.
bool MeterValues::parseYear(const QString &text, QString *error)
{
    if (text.compare(u"none", Qt::CaseInsensitive) == 0) {
        _year.reset();
        return true;
    }
    const auto year = parseRegister(text);
    if (!year) {
        *error = QStringLiteral("bad year %1 (0..65535 or none)").arg(text);
        return false;
    }
    _year = year;
    return true;
}

// The serial registers have a fixed size; a longer text is cut so that they keep it. A serial
// kept as a number must be one.
bool MeterValues::takeSerial(const QString &text, QString *error)
{
    if (_layout->serial.format == SerialRegisters::NumberLswFirst) {
        bool ok = false;
        const uint number = text.toUInt(&ok);
        if (!ok) {
            *error = QStringLiteral("bad serial %1 (a number, 0..4294967295)").arg(text);
            return false;
        }
        _serial = QByteArray::number(number);
        return true;
    }
    const qsizetype capacity = _layout->serial.count * 2;
    _serial = text.toLatin1();
    if (_serial.size() > capacity) {
        qCWarning(lcMeterSim).noquote() << "serial" << text << "cut to" << capacity << "characters";
        _serial.truncate(capacity);
    }
    return true;
}
