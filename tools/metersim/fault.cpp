#include "fault.h"

#include "nametable.h"

namespace Fault {

namespace {
    const NameTable<Kind> Names {
        { None, "none" },
        { Silent, "silent" },
        { Slow, "slow" },
        { Exception, "exception" },
        { Frozen, "frozen" },
    };
}

std::optional<Kind> fromName(const QString &name)
{
    return Names.find(name);
}

QString name(Kind fault)
{
    return Names.name(fault);
}

QStringList names()
{
    return Names.names();
}

}
