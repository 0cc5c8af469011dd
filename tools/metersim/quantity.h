#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <optional>

// The measured values a meter reports, each stored on the wire as a scaled signed integer.
namespace Quantity {

enum Kind {
    Voltage1,
    Voltage2,
    Voltage3,
    Current1,
    Current2,
    Current3,
    Power,
    PowerFactor1,
    PowerFactor2,
    PowerFactor3,
    Frequency,
    Energy,
    EnergyExported,
    // Meters with two tariffs count the second apart; the daemon adds both.
    EnergyTariff2,
};
inline constexpr int Count = EnergyTariff2 + 1;

std::optional<Kind> fromKey(const QString &key);
QString key(Kind kind);
QStringList keys();

// INT32 quantities take two registers, the others one (INT16).
bool isWide(Kind kind);

// Whether value survives scaling into the quantity's register width.
bool fits(Kind kind, double value);

// The scaled register value; saturates, so a value pushed out of range by drift cannot overflow.
qint32 encode(Kind kind, double value);

}
