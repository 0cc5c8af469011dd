// Bytes of an RS-485 line into the meter simulator, as its serial server takes them: the frame
// reader cuts them into frames (at pauses where the function code does not tell the length),
// each frame is parsed as a request and answered by the simulated meter of that slave id, one of
// every model. Input: chunks as LineChunks describes; the line goes quiet after the last one.

#include "framereader.h"
#include "fuzzapplication.h"
#include "linechunks.h"
#include "meter.h"
#include "meterbank.h"
#include "metermodel.h"
#include "modbuscrc.h"
#include "modbusreply.h"
#include "modbusrequest.h"

#include <memory>

#include <modbus.h>

namespace {

constexpr quint8 exceptionFlag = 0x80;
// Slave id, function code and CRC around the bytes that say how many follow.
constexpr qsizetype readReplyOverhead = 5;

// Every reply is a whole RTU frame from the slave that was asked, answering its function.
void checkReplyFrame(const QByteArray &reply, const ModbusRequest &request)
{
    FUZZ_REQUIRE(reply.size() >= 5 && reply.size() <= MODBUS_RTU_MAX_ADU_LENGTH);
    FUZZ_REQUIRE(ModbusCrc::matches(reply));
    FUZZ_REQUIRE(quint8(reply[0]) == request.slave);
    const auto function = quint8(reply[1]);
    FUZZ_REQUIRE((function & ~exceptionFlag) == (request.function & ~exceptionFlag));
    if (function & exceptionFlag) {
        FUZZ_REQUIRE(reply.size() == 5);
        return;
    }
    if (request.function == MODBUS_FC_WRITE_SINGLE_REGISTER)
        return;
    // A read answers with as many words as were asked, and says so.
    FUZZ_REQUIRE(quint8(reply[2]) == reply.size() - readReplyOverhead);
    FUZZ_REQUIRE(quint8(reply[2]) == 2 * request.operand);
}

void answer(const QByteArray &frame, MeterBank &bank)
{
    // What the reader passes on is a request frame the RTU protocol allows.
    FUZZ_REQUIRE(frame.size() <= MODBUS_RTU_MAX_ADU_LENGTH);
    FUZZ_REQUIRE(ModbusCrc::matches(frame));
    const std::optional<ModbusRequest> request = ModbusRequest::parse(frame);
    FUZZ_REQUIRE(request);
    FUZZ_REQUIRE(request->slave == quint8(frame[0]) && request->function == quint8(frame[1]));
    FUZZ_REQUIRE(!request->describe().isEmpty());
    Meter *meter = bank.find(request->slave);
    if (!meter)
        return;
    const QByteArray reply = ModbusReply::to(*meter, *request);
    checkReplyFrame(reply, *request);
    // A register written is answered with the request itself.
    if (request->function == MODBUS_FC_WRITE_SINGLE_REGISTER && !(quint8(reply[1]) & exceptionFlag))
        FUZZ_REQUIRE(reply == frame);
    checkReplyFrame(
        ModbusReply::exception(*request, MODBUS_EXCEPTION_SLAVE_OR_SERVER_FAILURE), *request);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    FuzzApplication::start((*argv)[0]);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A bank of fresh meters for every input: writes change a meter's registers.
    MeterBank bank;
    int id = Meter::FirstId;
    for (const QString &name : MeterModel::names())
        bank.add(std::make_unique<Meter>(id++, *MeterModel::fromName(name)));

    FrameReader reader;
    QObject::connect(&reader, &FrameReader::frameReceived,
        [&bank](const QByteArray &frame) { answer(frame, bank); });
    for (const LineChunks::Chunk &chunk : LineChunks::split(data, size)) {
        reader.feed(chunk.bytes);
        if (chunk.pauseAfter)
            reader.onSilence();
    }
    reader.onSilence();
    return 0;
}
