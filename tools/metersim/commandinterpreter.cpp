#include "commandinterpreter.h"

#include "logging.h"
#include "meter.h"
#include "meterbank.h"
#include "networkdevices.h"
#include "tcpdevice.h"

namespace {

const QString Ok = QStringLiteral("ok");

QString failure(const QString &reason)
{
    return QStringLiteral("error ") + reason;
}

QString usage(const QString &syntax)
{
    return failure(QStringLiteral("usage: ") + syntax);
}

}

CommandInterpreter::CommandInterpreter(MeterBank &bank, NetworkDevices &network, QObject *parent)
    : QObject(parent)
    , _bank(bank)
    , _network(network)
{
}

QString CommandInterpreter::execute(const QString &line)
{
    const QStringList words = line.simplified().split(u' ', Qt::SkipEmptyParts);
    const QString command = words.value(0).toLower();
    if (command == u"fault")
        return words.size() == 3 ? fault(words)
                                 : usage(QStringLiteral("fault ID ") + Fault::names().join(u'|'));
    if (command == u"gone")
        return words.size() == 2 ? setFault(words[1], Fault::Silent)
                                 : usage(QStringLiteral("gone ID"));
    if (command == u"back")
        return words.size() == 2 ? setFault(words[1], Fault::None)
                                 : usage(QStringLiteral("back ID"));
    if (command == u"set")
        return words.size() >= 4 ? set(words) : usage(QStringLiteral("set ID KEY VALUE"));
    if (command == u"down")
        return words.size() == 2 ? listening(words[1], false) : usage(QStringLiteral("down HOST"));
    if (command == u"up")
        return words.size() == 2 ? listening(words[1], true) : usage(QStringLiteral("up HOST"));
    if (command == u"identification")
        return words.size() == 3 ? identification(words)
                                 : usage(QStringLiteral("identification HOST ")
                                     + IdentificationMode::names().join(u'|'));
    if (command == u"quit")
        return words.size() == 1 ? quit() : usage(QStringLiteral("quit"));
    return failure(QStringLiteral("unknown command %1 (fault gone back set down up "
                                  "identification quit)")
                       .arg(words.value(0)));
}

// A network device also knows "reset": every request then resets its connection.
QString CommandInterpreter::fault(const QStringList &words)
{
    TcpDevice *network = _network.find(words[1]);
    if (network && words[2].compare(u"reset", Qt::CaseInsensitive) == 0) {
        network->meter().setFault(Fault::None);
        network->setResetting(true);
        qCInfo(lcMeterSim).noquote() << "tcp" << words[1] << "fault reset";
        return Ok;
    }
    const auto kind = Fault::fromName(words[2]);
    if (!kind)
        return failure(
            QStringLiteral("unknown fault %1 (%2)").arg(words[2], Fault::names().join(u' ')));
    return setFault(words[1], *kind);
}

QString CommandInterpreter::setFault(const QString &idText, Fault::Kind fault)
{
    QString error;
    Meter *target = meter(idText, &error);
    if (!target)
        return failure(error);
    target->setFault(fault);
    if (TcpDevice *network = _network.find(idText))
        network->setResetting(false);
    qCInfo(lcMeterSim).noquote() << "slave" << idText << "fault" << Fault::name(fault);
    return Ok;
}

// The value is the rest of the line, so a serial may contain spaces.
QString CommandInterpreter::set(const QStringList &words)
{
    QString error;
    Meter *target = meter(words[1], &error);
    if (!target)
        return failure(error);
    const QString value = words.mid(3).join(u' ');
    if (TcpDevice *network = _network.find(words[1]);
        network && network->setIdentity(words[2], value))
        return Ok;
    if (!target->set(words[2], value, &error))
        return failure(error);
    qCInfo(lcMeterSim).noquote() << "slave" << target->id() << words[2] << "=" << value;
    return Ok;
}

// The answer goes out before the event loop gets to quit.
QString CommandInterpreter::quit()
{
    QMetaObject::invokeMethod(this, &CommandInterpreter::quitRequested, Qt::QueuedConnection);
    return Ok;
}

QString CommandInterpreter::listening(const QString &host, bool listen)
{
    QString error;
    TcpDevice *target = device(host, &error);
    if (!target)
        return failure(error);
    if (!listen) {
        target->stopListening();
        return Ok;
    }
    return target->listen(&error) ? Ok : failure(error);
}

QString CommandInterpreter::identification(const QStringList &words)
{
    QString error;
    TcpDevice *target = device(words[1], &error);
    if (!target)
        return failure(error);
    const auto mode = IdentificationMode::fromName(words[2]);
    if (!mode)
        return failure(QStringLiteral("unknown identification mode %1 (%2)")
                           .arg(words[2], IdentificationMode::names().join(u' ')));
    target->setIdentificationMode(*mode);
    qCInfo(lcMeterSim).noquote() << "tcp" << words[1] << "identification" << words[2];
    return Ok;
}

Meter *CommandInterpreter::meter(const QString &idText, QString *error) const
{
    if (TcpDevice *network = _network.find(idText))
        return &network->meter();
    const auto id = Meter::parseId(idText);
    Meter *found = id ? _bank.find(*id) : nullptr;
    if (!found)
        *error = QStringLiteral("no meter with slave id or address %1").arg(idText);
    return found;
}

TcpDevice *CommandInterpreter::device(const QString &host, QString *error) const
{
    TcpDevice *found = _network.find(host);
    if (!found)
        *error = QStringLiteral("no network meter at %1").arg(host);
    return found;
}
