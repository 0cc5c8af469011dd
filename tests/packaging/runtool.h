#pragma once

#include <QString>
#include <QStringList>

struct ToolResult
{
    int exitCode = -1;
    QString output; // standard output and error, interleaved
};

// Runs a program to its end (at most `timeoutMs`), with `environment` added to the test's.
ToolResult runTool(const QString &program, const QStringList &arguments,
    const QStringList &environment = {}, int timeoutMs = 60000,
    const QString &workingDirectory = QString());
