#include "meterpath.h"

#include "modbuspath.h"

#include <QHostAddress>
#include <QRegularExpression>
#include <QStringList>

namespace {

void discardMessage(QtMsgType, const QMessageLogContext &, const QString &) { }

} // namespace

bool MeterPath::isWellFormed(const QString &path)
{
    return _isRtu(path) || _isTcp(path);
}

QString MeterPath::canonical(const QString &path)
{
    const QStringList parts = path.split(QLatin1Char('/'));
    if (_isTcp(path))
        return parts.at(0) + QLatin1Char('/') + QHostAddress(parts.at(1)).toString();
    return QStringLiteral("%1/%2/%3")
        .arg(parts.at(0))
        .arg(parts.at(1).toInt())
        .arg(parts.at(2).toInt());
}

bool MeterPath::_isRtu(const QString &path)
{
    // The validator explains a rejection in log lines written for the daemon's journal;
    // meterctl reports it in its own words instead.
    const QtMessageHandler previous = qInstallMessageHandler(discardMessage);
    const bool valid = ModbusPath::validPathString(path);
    qInstallMessageHandler(previous);
    return valid;
}

bool MeterPath::_isTcp(const QString &path)
{
    // QHostAddress alone would also take "7" (0.0.0.7) and read "010" as octal; on a station a
    // meter's IPv4 address is always written as four plain decimal numbers.
    static const QRegularExpression dottedQuad(QRegularExpression::anchoredPattern(
        QStringLiteral("(0|[1-9][0-9]{0,2})(\\.(0|[1-9][0-9]{0,2})){3}")));
    static const QRegularExpression blank(QStringLiteral("\\s"));

    const QStringList parts = path.split(QLatin1Char('/'));
    if (parts.size() != 2 || parts.at(0) != QLatin1String("modbus") || parts.at(1).contains(blank))
        return false;
    const QHostAddress address(parts.at(1));
    if (address.protocol() == QAbstractSocket::IPv4Protocol)
        return dottedQuad.match(parts.at(1)).hasMatch();
    return address.protocol() == QAbstractSocket::IPv6Protocol;
}
