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
