#include "messagepattern.h"

#include <QString>
#include <QtGlobal>

namespace MessagePattern {

void installJournalPattern()
{
    // journald reads a "<priority>" prefix on standard error as the line's syslog level.
    const QString levels = QStringLiteral("%{if-debug}%1%{endif}%{if-info}%2%{endif}"
                                          "%{if-warning}%3%{endif}%{if-critical}%4%{endif}"
                                          "%{if-fatal}%5%{endif}")
                               .arg(QLatin1String("<7>"))
                               .arg(QLatin1String("<6>"))
                               .arg(QLatin1String("<4>"))
                               .arg(QLatin1String("<3>"))
                               .arg(QLatin1String("<2>"));
    qSetMessagePattern(levels + QLatin1String("[%{category}] %{message}"));
}

void installTerminalPattern()
{
    qSetMessagePattern(QStringLiteral(
        "%{appname} %{time} "
        "%{if-warning}\033[1;33m%{endif}%{if-critical}\033[31m%{endif}%{if-fatal}\033[31m%{endif}"
        "[%{category}] %{message}"
        "%{if-warning}\033[0m%{endif}%{if-critical}\033[0m%{endif}%{if-fatal}\033[0m%{endif}"));
}

void installPlainPattern()
{
    // Qt's own default layout, spelled out: an empty pattern would print empty lines.
    qSetMessagePattern(QStringLiteral("%{if-category}%{category}: %{endif}%{message}"));
}

} // namespace MessagePattern
