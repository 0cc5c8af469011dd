// Bytes of a Modbus TCP connection into a simulated network meter, as its device takes them:
// frames are taken off the received bytes by their MBAP header, then answered as register
// requests or as Read Device Identification in the mode the input picks. An identification
// answer to the daemon's own request is also handed to the daemon's parser, which must take what
// a working device sends and refuse each broken kind.
//
// Input: a byte choosing the meter model, a byte choosing the identification mode, then chunks
// as LineChunks describes.

#include "fuzzapplication.h"
#include "identificationmode.h"
#include "identificationreply.h"
#include "linechunks.h"
#include "mbapframe.h"
#include "meter.h"
#include "metermodel.h"
#include "modbusdeviceidentification.h"
#include "modbusreply.h"
#include "modbusrequest.h"

#include <modbus.h>

namespace {

constexpr quint8 encapsulatedInterface = 0x2B;
constexpr quint8 exceptionFlag = 0x80;
constexpr quint16 daemonTransaction = 0xABCD;

const DeviceIdentity identity { QStringLiteral("SIEMENS"), QStringLiteral("PAC3220"),
    QStringLiteral("V3.2.1") };

// An encoded frame reads back as the same frame, all of it.
void checkRoundTrip(const MbapFrame &frame)
{
    QByteArray bytes = frame.encoded();
    const std::optional<MbapFrame> back = MbapFrame::take(bytes);
    FUZZ_REQUIRE(back && bytes.isEmpty());
    FUZZ_REQUIRE(back->transaction == frame.transaction && back->unit == frame.unit
        && back->pdu == frame.pdu);
}

void answerRegisters(const MbapFrame &frame, Meter &meter)
{
    const std::optional<ModbusRequest> request = ModbusRequest::fromPdu(frame.unit, frame.pdu);
    FUZZ_REQUIRE(request.has_value() == !frame.pdu.isEmpty());
    if (!request)
        return;
    const QByteArray pdu = ModbusReply::pdu(meter, *request);
    FUZZ_REQUIRE(!pdu.isEmpty() && pdu.size() <= MODBUS_MAX_PDU_LENGTH);
    FUZZ_REQUIRE((quint8(pdu[0]) & ~exceptionFlag) == (request->function & ~exceptionFlag));
    if (quint8(pdu[0]) & exceptionFlag)
        FUZZ_REQUIRE(pdu.size() == 2);
    else if (request->function == MODBUS_FC_WRITE_SINGLE_REGISTER)
        FUZZ_REQUIRE(pdu == frame.pdu);
    else
        FUZZ_REQUIRE(quint8(pdu[1]) == pdu.size() - 2 && quint8(pdu[1]) == 2 * request->operand);
    checkRoundTrip({ frame.transaction, frame.unit, pdu });
}

void checkDaemonParse(const QByteArray &reply, IdentificationMode::Kind mode)
{
    ModbusDeviceIdentification parser { QString() };
    const bool accepted = parser.parseResponse(reply);
    const QMap<quint8, QString> all { { 0, identity.vendor }, { 1, identity.productCode },
        { 2, identity.revision } };
    switch (mode) {
    case IdentificationMode::Normal:
    case IdentificationMode::OutOfOrder:
        FUZZ_REQUIRE(accepted && parser.objects() == all);
        break;
    case IdentificationMode::NoObjects:
        FUZZ_REQUIRE(accepted && parser.objects().isEmpty());
        break;
    case IdentificationMode::MoreFollows:
    case IdentificationMode::Short:
    case IdentificationMode::WrongTransaction:
    case IdentificationMode::Exception:
        FUZZ_REQUIRE(!accepted);
        break;
    case IdentificationMode::NoAnswer:
    case IdentificationMode::Close:
        break;
    }
}

void identify(const MbapFrame &frame, IdentificationMode::Kind mode)
{
    const std::optional<QByteArray> reply = IdentificationReply::to(frame, identity, mode);
    FUZZ_REQUIRE(reply.has_value()
        == (mode != IdentificationMode::NoAnswer && mode != IdentificationMode::Close));
    if (!reply)
        return;
    if (mode != IdentificationMode::Short) {
        QByteArray bytes = *reply;
        const std::optional<MbapFrame> back = MbapFrame::take(bytes);
        FUZZ_REQUIRE(back && bytes.isEmpty() && back->unit == frame.unit);
    }
    if (frame.transaction == daemonTransaction)
        checkDaemonParse(*reply, mode);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    FuzzApplication::start((*argv)[0]);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const QStringList models = MeterModel::names();
    const QStringList modes = IdentificationMode::names();
    Meter meter(1, *MeterModel::fromName(models.at(data[0] % models.size())));
    const IdentificationMode::Kind mode
        = *IdentificationMode::fromName(modes.at(data[1] % modes.size()));

    QByteArray pending;
    for (const LineChunks::Chunk &chunk : LineChunks::split(data + 2, size - 2)) {
        pending += chunk.bytes;
        while (true) {
            const qsizetype before = pending.size();
            const std::optional<MbapFrame> frame = MbapFrame::take(pending);
            if (!frame)
                break;
            // Every frame takes at least its header off the buffer, so the loop ends.
            FUZZ_REQUIRE(pending.size() <= before - MbapFrame::HeaderSize);
            if (!frame->pdu.isEmpty() && quint8(frame->pdu[0]) == encapsulatedInterface)
                identify(*frame, mode);
            else
                answerRegisters(*frame, meter);
        }
    }
    FuzzApplication::settle();
    return 0;
}
