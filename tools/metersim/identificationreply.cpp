#include "identificationreply.h"

#include "mbapframe.h"

#include <modbus.h>

namespace IdentificationReply {

namespace {

    constexpr quint8 EncapsulatedInterface = 0x2B;
    constexpr quint8 ReadDeviceIdentification = 0x0E;
    constexpr quint8 BasicIdentification = 0x01;
    constexpr quint8 BasicConformity = 0x01;
    constexpr quint8 MoreFollowsFlag = 0xFF;
    constexpr qsizetype ShortFrame = 6;

    QByteArray objects(const DeviceIdentity &identity, const QList<int> &order)
    {
        const QByteArray values[] = { identity.vendor.toUtf8(), identity.productCode.toUtf8(),
            identity.revision.toUtf8() };
        QByteArray bytes;
        for (const int id : order) {
            bytes.append(static_cast<char>(id));
            bytes.append(static_cast<char>(values[id].size()));
            bytes.append(values[id]);
        }
        return bytes;
    }

    QByteArray pdu(const DeviceIdentity &identity, quint8 moreFollows, const QList<int> &order)
    {
        QByteArray bytes;
        bytes.append(static_cast<char>(EncapsulatedInterface));
        bytes.append(static_cast<char>(ReadDeviceIdentification));
        bytes.append(static_cast<char>(BasicIdentification));
        bytes.append(static_cast<char>(BasicConformity));
        bytes.append(static_cast<char>(moreFollows));
        bytes.append(static_cast<char>(0)); // next object id
        bytes.append(static_cast<char>(order.size()));
        return bytes + objects(identity, order);
    }

    QByteArray answer(const MbapFrame &request, const QByteArray &replyPdu)
    {
        return MbapFrame { request.transaction, request.unit, replyPdu }.encoded();
    }

}

std::optional<QByteArray> to(
    const MbapFrame &request, const DeviceIdentity &identity, IdentificationMode::Kind mode)
{
    using namespace IdentificationMode;
    const QList<int> inOrder { 0, 1, 2 };
    switch (mode) {
    case Normal:
        return answer(request, pdu(identity, 0, inOrder));
    case MoreFollows:
        return answer(request, pdu(identity, MoreFollowsFlag, inOrder));
    case Short:
        return answer(request, pdu(identity, 0, inOrder)).left(ShortFrame);
    case WrongTransaction: {
        MbapFrame swapped = request;
        swapped.transaction
            = static_cast<quint16>(request.transaction << 8 | request.transaction >> 8);
        return answer(swapped, pdu(identity, 0, inOrder));
    }
    case Exception:
        return answer(request,
            QByteArray { static_cast<char>(EncapsulatedInterface | 0x80),
                static_cast<char>(MODBUS_EXCEPTION_ILLEGAL_FUNCTION) });
    case NoObjects:
        return answer(request, pdu(identity, 0, {}));
    case OutOfOrder:
        return answer(request, pdu(identity, 0, { 0, 2, 1 }));
    case NoAnswer:
    case Close:
        break;
    }
    return std::nullopt;
}

}
