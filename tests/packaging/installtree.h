#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// The files of an installation, under a temporary directory standing for the root file system.
class InstallTree
{
public:
    // Installs the build tree into the directory with `cmake --install` and DESTDIR, as a
    // package build does. False, with cmake's output in `log`, when that fails.
    bool install(const QString &buildDirectory, QString *log);

    QString root() const { return _dir.path(); }
    // Where a file installed as `installedPath` (absolute) is in this tree.
    QString path(const QString &installedPath) const { return _dir.path() + installedPath; }

private:
    QTemporaryDir _dir;
};

struct ToolResult
{
    int exitCode = -1;
    QString output; // standard output and error, interleaved
};

// Runs a program to its end (at most `timeoutMs`), with `environment` added to the test's.
ToolResult runTool(const QString &program, const QStringList &arguments,
    const QStringList &environment = {}, int timeoutMs = 60000,
    const QString &workingDirectory = QString());

// Runs `systemd-analyze verify` on a copy of a unit whose Exec lines name programs under
// `root`, so that a unit installed under a temporary root is checked against the programs
// installed with it. The unit's own name is kept, as systemd derives settings from it.
ToolResult verifyUnit(const QString &unitName, const QString &unitText, const QString &root);

// The values assigned to `key` in a unit's text, in order (the last one is in force for
// single-valued settings; an empty assignment resets list settings).
QStringList unitValues(const QString &unitText, const QString &key);
