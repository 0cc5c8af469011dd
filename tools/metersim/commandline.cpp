#include "commandline.h"

#include <QCoreApplication>

CommandLine::CommandLine()
    : _pty(QStringLiteral("pty"),
        QStringLiteral(
            "Create a pseudo-terminal pair and make <link> a symlink to its slave side."),
        QStringLiteral("link"))
    , _device(QStringLiteral("device"),
          QStringLiteral("Serve on an existing serial device or pty end."), QStringLiteral("path"))
    , _meter(QStringLiteral("meter"),
          QStringLiteral("Add a meter, e.g. 7:EM340 or 3:EM111:EM111SIM00003 (repeatable)."),
          QStringLiteral("id:model[:serial]"))
    , _scenario(QStringLiteral("scenario"),
          QStringLiteral("Add the meters described in an INI file."), QStringLiteral("file"))
    , _verbose(QStringLiteral("verbose"), QStringLiteral("Log every request on stderr."))
{
    _parser.setApplicationDescription(
        QStringLiteral("Plays Carlo Gavazzi, Garo and ISKRA energy meters as Modbus RTU slaves on "
                       "one serial line."));
    _parser.addHelpOption();
    _parser.addOptions({ _pty, _device, _meter, _scenario, _verbose });
}

bool CommandLine::process(const QCoreApplication &application, QString *error)
{
    _parser.process(application);
    if (_parser.isSet(_pty) == _parser.isSet(_device)) {
        *error = QStringLiteral("give exactly one of --pty and --device");
        return false;
    }
    if (meters().isEmpty() && scenario().isEmpty()) {
        *error = QStringLiteral("give at least one --meter or a --scenario");
        return false;
    }
    if (!_parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("unexpected argument %1")
                     .arg(_parser.positionalArguments().constFirst());
        return false;
    }
    return true;
}
