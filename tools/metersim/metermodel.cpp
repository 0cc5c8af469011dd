#include "metermodel.h"

#include "nametable.h"

namespace MeterModel {

namespace {
    const NameTable<Type> Names {
        { EM340, "EM340" },
        { EM111, "EM111" },
        { EM210, "EM210" },
        { EM24, "EM24" },
        { EM26, "EM26" },
        { EM540, "EM540" },
        { EM511, "EM511" },
        { EM580, "EM580" },
        { GM3D, "GM3D" },
        { GM3T, "GM3T" },
        { WM3M6, "WM3M6" },
        { PAC3220, "PAC3220" },
    };
}

std::optional<Type> fromName(const QString &name)
{
    return Names.find(name);
}

QString name(Type model)
{
    return Names.name(model);
}

QStringList names()
{
    return Names.names();
}

}
