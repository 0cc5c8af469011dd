#include "quantity.h"

#include <array>

namespace Quantity {

namespace {

    struct Definition
    {
        Kind kind;
        const char *key;
    };

    constexpr std::array<Definition, Count> Definitions { {
        { Voltage1, "voltage1" },
        { Voltage2, "voltage2" },
        { Voltage3, "voltage3" },
        { Current1, "current1" },
        { Current2, "current2" },
        { Current3, "current3" },
        { Power, "power" },
        { PowerFactor1, "powerfactor1" },
        { PowerFactor2, "powerfactor2" },
        { PowerFactor3, "powerfactor3" },
        { Frequency, "frequency" },
        { Energy, "energy" },
        { EnergyExported, "energyexported" },
        { ApparentPower3, "apparentpower3" },
        { EnergyTariff2, "energy2" },
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

}
