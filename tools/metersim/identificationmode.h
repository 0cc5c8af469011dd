#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// How a network device answers Read Device Identification, so that tests can drive every branch
// of a master's parser.
namespace IdentificationMode {

enum Kind {
    Normal, // VendorName, ProductCode, MajorMinorRevision in one frame
    MoreFollows, // the same, announcing a further frame (More Follows 0xFF)
    Short, // a frame cut after six bytes
    WrongTransaction, // the transaction id with its bytes swapped
    Exception, // exception 01 (illegal function)
    NoObjects, // a complete frame listing no object
    OutOfOrder, // the three objects as 0, 2, 1
    NoAnswer, // reads the request and stays silent
    Close, // closes the connection on the request
};

std::optional<Kind> fromName(const QString &name);
QString name(Kind mode);
QStringList names();

}
