#include "commandinterpreter.h"

#include "logging.h"
#include "meter.h"
#include "meterbank.h"

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

CommandInterpreter::CommandInterpreter(MeterBank &bank, QObject *parent)
    : QObject(parent)
    , _bank(bank)
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
    if (command == u"quit")
        return words.size() == 1 ? quit() : usage(QStringLiteral("quit"));
    return failure(
        QStringLiteral("unknown command %1 (fault gone back set quit)").arg(words.value(0)));
}

QString CommandInterpreter::fault(const QStringList &words)
{
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
    qCInfo(lcMeterSim).noquote() << "slave" << target->id() << "fault" << Fault::name(fault);
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

Meter *CommandInterpreter::meter(const QString &idText, QString *error) const
{
    const auto id = Meter::parseId(idText);
    Meter *found = id ? _bank.find(*id) : nullptr;
    if (!found)
        *error = QStringLiteral("no meter with slave id %1").arg(idText);
    return found;
}
