#include "quantity.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace Quantity {

namespace {

    struct Definition
    {
        Kind kind;
        const char *key;
        double scale;
        bool wide;
    };

    constexpr std::array<Definition, Count> Definitions { {
        { Voltage1, "voltage1", 10, true },
        { Voltage2, "voltage2", 10, true },
        { Voltage3, "voltage3", 10, true },
        { Current1, "current1", 1000, true },
        { Current2, "current2", 1000, true },
        { Current3, "current3", 1000, true },
        { Power, "power", 10, true },
        { PowerFactor1, "powerfactor1", 1000, false },
        { PowerFactor2, "powerfactor2", 1000, false },
        { PowerFactor3, "powerfactor3", 1000, false },
        { Frequency, "frequency", 10, false },
        { Energy, "energy", 10, true },
        { EnergyExported, "energyexported", 10, true },
        { EnergyTariff2, "energy2", 10, true },
    } };

    // Definitions is indexed by Kind, so its order must follow the enumeration.
    constexpr bool followsEnumeration()
    {
        for (int index = 0; index < Count; ++index) {
            if (Definitions[index].kind != index)
                return false;
        }
        return true;
    }
    static_assert(followsEnumeration());

    double lowest(Kind kind)
    {
        return Definitions[kind].wide ? std::numeric_limits<qint32>::min()
                                      : std::numeric_limits<qint16>::min();
    }

    double highest(Kind kind)
    {
        return Definitions[kind].wide ? std::numeric_limits<qint32>::max()
                                      : std::numeric_limits<qint16>::max();
    }

    double scaled(Kind kind, double value)
    {
        return std::round(value * Definitions[kind].scale);
    }

}

std::optional<Kind> fromKey(const QString &key)
{
    for (const Definition &definition : Definitions) {
        if (key.compare(QLatin1String(definition.key), Qt::CaseInsensitive) == 0)
            return definition.kind;
    }
    return std::nullopt;
}

QString key(Kind kind)
{
    return QLatin1String(Definitions[kind].key);
}

QStringList keys()
{
    QStringList result;
    for (const Definition &definition : Definitions)
        result.append(QLatin1String(definition.key));
    return result;
}

bool isWide(Kind kind)
{
    return Definitions[kind].wide;
}

bool fits(Kind kind, double value)
{
    const double raw = scaled(kind, value);
    return std::isfinite(raw) && raw >= lowest(kind) && raw <= highest(kind);
}

qint32 encode(Kind kind, double value)
{
    if (std::isnan(value))
        return 0;
    return static_cast<qint32>(std::clamp(scaled(kind, value), lowest(kind), highest(kind)));
}

}
