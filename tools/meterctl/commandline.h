#pragma once

#include "invocation.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QStringList>

// Turns the arguments into an Invocation, or into a one-line reason why they do not make one.
// Nothing here talks to the daemon, so a typing error is reported the same with or without it.
class CommandLine
{
public:
    CommandLine();

    // False with error() set when the arguments are not a valid command.
    bool parse(const QStringList &arguments);
    Invocation invocation() const { return _invocation; }
    QString error() const { return _error; }
    QString helpText() const;
    QString versionText() const;

private:
    bool _parseCommand(const QString &name, const QStringList &arguments);
    bool _parsePath(const QString &text);
    // ADDR and REG, the first two arguments of read and write.
    bool _parseRegister(const QStringList &arguments);
    bool _parseNumber(const QString &what, const QString &text, quint32 minimum, quint32 maximum,
        quint16 *number);
    bool _parseCount();
    bool _checkOptions();
    bool _fail(const QString &message);

    QCommandLineParser _parser;
    QCommandLineOption _helpOption;
    QCommandLineOption _versionOption;
    QCommandLineOption _jsonOption;
    QCommandLineOption _countOption;
    Invocation _invocation;
    QString _error;
};
