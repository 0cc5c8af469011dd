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
    , _tcp(QStringLiteral("tcp"),
          QStringLiteral("Add a meter on Modbus TCP at HOST port 502, e.g. 127.0.0.2:PAC3220 or "
                         "127.0.0.3:EM24:1650 (repeatable)."),
          QStringLiteral("host:model[:idcode]"))
    , _scenario(QStringLiteral("scenario"),
          QStringLiteral("Add the meters described in an INI file."), QStringLiteral("file"))
    , _verbose(QStringLiteral("verbose"), QStringLiteral("Log every request on stderr."))
{
    _parser.setApplicationDescription(QStringLiteral(
        "Plays energy meters as Modbus RTU slaves on one serial line and as Modbus TCP "
        "devices on loopback addresses."));
    _parser.addHelpOption();
    _parser.addOptions({ _pty, _device, _meter, _tcp, _scenario, _verbose });
}

// A serial line is needed for serial meters only; network meters alone need none.
bool CommandLine::process(const QCoreApplication &application, QString *error)
{
    _parser.process(application);
    const bool serialMeters = !meters().isEmpty() || !scenario().isEmpty();
    if (_parser.isSet(_pty) && _parser.isSet(_device)) {
        *error = QStringLiteral("give only one of --pty and --device");
        return false;
    }
    if (serialMeters != (_parser.isSet(_pty) || _parser.isSet(_device))) {
        *error = serialMeters ? QStringLiteral("serial meters need --pty or --device")
                              : QStringLiteral("--pty and --device need a --meter or a --scenario");
        return false;
    }
    if (!serialMeters && networkMeters().isEmpty()) {
        *error = QStringLiteral("give at least one --meter, --tcp or --scenario");
        return false;
    }
    if (!_parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("unexpected argument %1")
                     .arg(_parser.positionalArguments().constFirst());
        return false;
    }
    return true;
}
