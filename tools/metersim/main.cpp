// metersim plays energy meters (Carlo Gavazzi, Garo, ISKRA, Siemens) as Modbus RTU slaves,
// several slave ids on one serial line, and as Modbus TCP devices on loopback addresses, so that
// meterd can be tested and shown without hardware.
//
// Command line:
//   metersim [--pty LINK | --device PATH] [--meter ID:MODEL[:SERIAL]]... [--scenario FILE]
//            [--tcp HOST:MODEL[:IDCODE]]... [--verbose]
//   --pty LINK      make a pseudo-terminal pair, serve on its master side, point LINK at its
//                   slave side (an old symlink there is replaced, and removed again on exit)
//   --device PATH   serve on an existing serial device or pty end, raw 9600 8N1
//   --meter         a meter with default values; MODEL is EM340, EM111, EM210, EM24, EM26,
//                   EM540, EM511, EM580, GM3D, GM3T, WM3M6 or PAC3220
//   --tcp           a Modbus TCP device at HOST port 502 (binding it needs root or a network
//                   namespace of one's own), e.g. 127.0.0.2:PAC3220 or 127.0.0.3:EM24:1650
//   --verbose       log every request (category "metersim", debug level) on stderr
//
// stdout carries "ready <LINK or PATH>" once serving, then one answer per command on stdin:
// "ok" or "error <reason>". Commands, one per line:
//   fault ID none|silent|slow|exception|frozen
//   gone ID                 same as fault ID silent
//   back ID                 same as fault ID none
//   set ID KEY VALUE        KEY as in a scenario file (not model or fault)
//   quit
// A network device is named by its address in place of ID; for it there are also
//   fault HOST reset        reset the connection on every request
//   down HOST / up HOST     stop listening (dropping connections) / listen again
//   identification HOST normal|morefollows|short|wrongtid|exception|noobjects|outoforder|
//                  noanswer|close      how it answers Read Device Identification
//   set HOST vendor|productcode|revision TEXT   the identification objects
// End of stdin does not stop the simulator; SIGTERM, SIGINT and quit do.
//
// Faults: silent never answers; slow answers after 800 ms; exception answers every request with
// exception 04 (slave device failure); frozen answers normally but stops all drift. Without a
// fault, voltages wander up to 0.3 V around their set value every second and the energy counters
// follow the power.
//
// Scenario file, INI, one group per slave id (1..247), every key but model optional:
//   [7]
//   model=EM340             ; EM340 EM111 EM210 EM24 EM26 EM540 EM511 EM580 GM3D GM3T WM3M6
//   serial=EM340SIM000007   ; longer than the model's serial registers hold: cut; GM3D: number
//   idcode=341              ; identification code, register 11; default by model
//   voltage1=230.1          ; V, also voltage2, voltage3
//   current1=5.2            ; A, also current2, current3
//   power=-1500.5           ; W, negative when feeding into the grid
//   powerfactor1=0.98       ; also powerfactor2, powerfactor3
//   frequency=50.0          ; Hz
//   energy=1234.5           ; kWh imported
//   energyexported=12.3     ; kWh exported
//   apparentpower3=1124.6   ; VA of phase 3
//   year=2021               ; production year register, verbatim; none: register missing
//   fault=none              ; fault at start
// A model ignores the values it has no register for and refuses those its registers cannot hold.

#include "commandinterpreter.h"
#include "commandline.h"
#include "controlchannel.h"
#include "logging.h"
#include "meter.h"
#include "meterbank.h"
#include "meteroption.h"
#include "modbusserver.h"
#include "networkdevices.h"
#include "scenario.h"
#include "serialline.h"
#include "signalwatcher.h"

#include <QCoreApplication>
#include <csignal>

namespace {

void configureLogging(bool verbose)
{
    QLoggingCategory::setFilterRules(
        verbose ? QStringLiteral("metersim.debug=true") : QStringLiteral("metersim.debug=false"));
}

bool addMeters(const CommandLine &options, MeterBank &bank, QString *error)
{
    std::vector<std::unique_ptr<Meter>> meters;
    for (const QString &text : options.meters()) {
        auto meter = MeterOption::create(text, error);
        if (!meter)
            return false;
        meters.push_back(std::move(meter));
    }
    if (!options.scenario().isEmpty() && !Scenario::load(options.scenario(), &meters, error))
        return false;
    for (auto &meter : meters) {
        const int id = meter->id();
        if (!bank.add(std::move(meter))) {
            *error = QStringLiteral("slave id %1 given twice").arg(id);
            return false;
        }
    }
    return true;
}

bool addNetworkMeters(const CommandLine &options, NetworkDevices &network, QString *error)
{
    for (const QString &text : options.networkMeters()) {
        if (!network.add(text, error))
            return false;
    }
    return true;
}

std::unique_ptr<SerialLine> openLine(const CommandLine &options, QString *error)
{
    if (options.ptyLink().isEmpty())
        return SerialLine::openDevice(options.device(), error);
    return SerialLine::createPty(options.ptyLink(), error);
}

// What stdout announces once everything serves: the serial line, then each network address.
QString readyLine(const SerialLine *line, const CommandLine &options)
{
    QStringList served;
    if (line)
        served.append(line->name());
    for (const QString &text : options.networkMeters())
        served.append(text.section(u':', 0, 0));
    return QStringLiteral("ready ") + served.join(u' ');
}

int fail(const QString &message)
{
    qCCritical(lcMeterSim).noquote() << message;
    return 1;
}

}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("metersim"));
    // A driver that closes our stdout must not kill the simulator in the middle of an answer.
    std::signal(SIGPIPE, SIG_IGN);

    CommandLine options;
    QString error;
    if (!options.process(application, &error))
        return fail(error);
    configureLogging(options.verbose());

    MeterBank bank;
    NetworkDevices network(bank);
    if (!addMeters(options, bank, &error) || !addNetworkMeters(options, network, &error))
        return fail(error);
    SignalWatcher signalWatcher;
    if (!signalWatcher.watch(&error))
        return fail(error);
    std::unique_ptr<SerialLine> line;
    std::unique_ptr<ModbusServer> server;
    if (!options.meters().isEmpty() || !options.scenario().isEmpty()) {
        line = openLine(options, &error);
        if (!line)
            return fail(error);
        server = std::make_unique<ModbusServer>(*line, bank);
        QObject::connect(
            server.get(), &ModbusServer::lineLost, &application, [] { QCoreApplication::exit(1); });
    }
    if (!network.listen(&error))
        return fail(error);

    CommandInterpreter interpreter(bank, network);
    ControlChannel control;
    QObject::connect(&control, &ControlChannel::lineReceived, &interpreter,
        [&](const QString &command) { control.send(interpreter.execute(command)); });
    QObject::connect(
        &interpreter, &CommandInterpreter::quitRequested, &application, &QCoreApplication::quit);
    QObject::connect(
        &signalWatcher, &SignalWatcher::terminationRequested, &application, [](int signalNumber) {
            qCInfo(lcMeterSim) << "quitting on signal" << signalNumber;
            QCoreApplication::quit();
        });

    control.send(readyLine(line.get(), options));
    return application.exec();
}
