#pragma once

#include "identificationmode.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

struct MbapFrame;

// The objects a device names itself by: VendorName, ProductCode, MajorMinorRevision.
struct DeviceIdentity
{
    QString vendor;
    QString productCode;
    QString revision;
};

// The whole Modbus TCP answer to a Read Device Identification request in the given mode;
// nothing when the device stays silent.
namespace IdentificationReply {

std::optional<QByteArray> to(
    const MbapFrame &request, const DeviceIdentity &identity, IdentificationMode::Kind mode);

}
