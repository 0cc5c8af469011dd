#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <optional>

// The measured values a meter reports, in physical units; how each model stores them is in its
// register layout.
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
    ApparentPower3,
    // Meters with two tariffs count the second apart; the daemon adds both.
    EnergyTariff2,
};
inline constexpr int Count = EnergyTariff2 + 1;

std::optional<Kind> fromKey(const QString &key);
QString key(Kind kind);
QStringList keys();

}
