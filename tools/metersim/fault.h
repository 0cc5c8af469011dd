#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// How a simulated meter misbehaves, so that tests can watch the daemon cope.
namespace Fault {

enum Kind {
    None, // answers normally, values drift
    Silent, // never answers, like a meter that lost power or its bus wire
    Slow, // answers after the master has given up waiting
    Exception, // answers every request with "slave device failure"
    Frozen, // answers normally, values never change
};

std::optional<Kind> fromName(const QString &name);
QString name(Kind fault);
QStringList names();

}
