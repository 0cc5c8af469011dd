#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QStringList>

class QCoreApplication;

class CommandLine
{
public:
    CommandLine();

    // Malformed options and --help end the program the usual Qt way; options that parse but do
    // not fit together return false with the reason.
    bool process(const QCoreApplication &application, QString *error);

    QString ptyLink() const { return _parser.value(_pty); }
    QString device() const { return _parser.value(_device); }
    QStringList meters() const { return _parser.values(_meter); }
    QStringList networkMeters() const { return _parser.values(_tcp); }
    QString scenario() const { return _parser.value(_scenario); }
    bool verbose() const { return _parser.isSet(_verbose); }

private:
    QCommandLineParser _parser;
    QCommandLineOption _pty;
    QCommandLineOption _device;
    QCommandLineOption _meter;
    QCommandLineOption _tcp;
    QCommandLineOption _scenario;
    QCommandLineOption _verbose;
};
