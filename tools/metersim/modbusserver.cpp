#include "modbusserver.h"

#include "logging.h"
#include "meter.h"
#include "meterbank.h"
#include "modbusreply.h"
#include "modbusrequest.h"
#include "serialline.h"

#include <QTimer>
#include <modbus.h>

namespace {
// Well past the half second masters usually wait for an answer.
constexpr int SlowReplyMilliseconds = 800;
}

ModbusServer::ModbusServer(SerialLine &line, MeterBank &bank, QObject *parent)
    : QObject(parent)
    , _line(line)
    , _bank(bank)
    , _notifier(line.fd(), QSocketNotifier::Read)
{
    connect(&_notifier, &QSocketNotifier::activated, this, &ModbusServer::onReadable);
    connect(&_reader, &FrameReader::frameReceived, this, &ModbusServer::onFrame);
}

void ModbusServer::onReadable()
{
    const auto bytes = _line.read();
    if (!bytes) {
        qCWarning(lcMeterSim) << "the serial line hung up";
        _notifier.setEnabled(false);
        emit lineLost();
        return;
    }
    _reader.feed(*bytes);
}

// Frames for ids nobody plays are not answered, as on a real bus.
void ModbusServer::onFrame(const QByteArray &frame)
{
    const auto request = ModbusRequest::parse(frame);
    if (!request)
        return;
    Meter *meter = _bank.find(request->slave);
    qCDebug(lcMeterSim).noquote() << request->describe()
            + (meter ? QString() : QStringLiteral(" (no such meter)"));
    if (meter)
        respond(*meter, *request);
}

void ModbusServer::respond(Meter &meter, const ModbusRequest &request)
{
    switch (meter.fault()) {
    case Fault::Silent:
        return;
    case Fault::Exception:
        _line.write(ModbusReply::exception(request, MODBUS_EXCEPTION_SLAVE_OR_SERVER_FAILURE));
        return;
    case Fault::Slow:
        sendLate(ModbusReply::to(meter, request));
        return;
    case Fault::None:
    case Fault::Frozen:
        _line.write(ModbusReply::to(meter, request));
        return;
    }
}

void ModbusServer::sendLate(const QByteArray &reply)
{
    QTimer::singleShot(SlowReplyMilliseconds, this, [this, reply] { _line.write(reply); });
}
