#include "pathoverride.h"

#include <QtGlobal>

namespace PathOverride {

bool isOverridden(const char *variable)
{
    return !qEnvironmentVariableIsEmpty(variable);
}

QString path(const char *variable, const QString &builtInPath)
{
    return isOverridden(variable) ? QString::fromLatin1(qgetenv(variable)) : builtInPath;
}

} // namespace PathOverride
