#include "identificationmode.h"

#include "nametable.h"

namespace IdentificationMode {

namespace {
    const NameTable<Kind> Names {
        { Normal, "normal" },
        { MoreFollows, "morefollows" },
        { Short, "short" },
        { WrongTransaction, "wrongtid" },
        { Exception, "exception" },
        { NoObjects, "noobjects" },
        { OutOfOrder, "outoforder" },
        { NoAnswer, "noanswer" },
        { Close, "close" },
    };
}

std::optional<Kind> fromName(const QString &name)
{
    return Names.find(name);
}

QString name(Kind mode)
{
    return Names.name(mode);
}

QStringList names()
{
    return Names.names();
}

}
