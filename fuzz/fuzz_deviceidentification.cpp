// The answer of a Modbus TCP device to Read Device Identification, as the TCP meter's detection
// parses it: the input is the response exactly as it was read from the socket.

#include "fuzzapplication.h"
#include "modbusdeviceidentification.h"

namespace {

// Byte 13 of a response counts the objects it carries.
constexpr qsizetype objectCountByte = 13;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    FuzzApplication::start((*argv)[0]);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray response(reinterpret_cast<const char *>(data), qsizetype(size));
    // No address: the client never connects, it only parses.
    ModbusDeviceIdentification identification { QString() };
    const bool accepted = identification.parseResponse(response);

    const QMap<quint8, QString> &objects = identification.objects();
    if (!accepted) {
        FUZZ_REQUIRE(objects.isEmpty());
    } else {
        // An MBAP header and the function code at least, with the request's transaction id.
        FUZZ_REQUIRE(response.size() >= 7);
        FUZZ_REQUIRE(response.startsWith("\xAB\xCD"));
        const int count = response.size() > objectCountByte ? quint8(response[objectCountByte]) : 0;
        FUZZ_REQUIRE(objects.size() <= count);
    }
    for (const QString &value : objects) {
        // A value is at most the 255 bytes its length byte can announce, and never more text
        // than bytes.
        FUZZ_REQUIRE(value.size() <= 255);
    }
    // The parse alone decides nothing: only a completed exchange does.
    FUZZ_REQUIRE(identification.state() == ModbusDeviceIdentification::Pending);
    FUZZ_REQUIRE(identification.object(1) == objects.value(1));
    FuzzApplication::settle();
    return 0;
}
