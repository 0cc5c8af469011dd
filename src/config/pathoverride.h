#pragma once

#include <QString>

// Where a file or device lives: the environment variable's value when it is set and not empty
// (so tests and odd installations can move it), else the built-in path.
namespace PathOverride {
QString path(const char *variable, const QString &builtInPath);
bool isOverridden(const char *variable);
}
