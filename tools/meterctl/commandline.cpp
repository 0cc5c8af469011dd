#include "commandline.h"

#include "meterpath.h"
#include "numberargument.h"

#include <climits>

namespace {

struct CommandSyntax
{
    const char *name;
    Command::Kind kind;
    const char *arguments;
    qsizetype minimum;
    qsizetype maximum;
};

constexpr CommandSyntax commands[] = {
    { "list", Command::List, "", 0, 0 },
    { "show", Command::Show, "PATH", 1, 1 },
    { "watch", Command::Watch, "[PATH] [--count N]", 0, 1 },
    { "read", Command::Read, "ADDR REG", 2, 2 },
    { "write", Command::Write, "ADDR REG VALUE", 3, 3 },
    { "test-rs485", Command::TestRs485, "", 0, 0 },
};

// Slave addresses a Modbus master may talk to alone; 0 is broadcast, 248 and above reserved.
constexpr quint32 firstSlaveAddress = 1;
constexpr quint32 lastSlaveAddress = 247;
constexpr quint32 largestRegisterWord = 65535;

const char *const usage = R"(Usage: meterctl [--json] COMMAND [ARGUMENTS]

Reads the energy meters of this charging station from meterd over the D-Bus
system bus (DBUS_SYSTEM_BUS_ADDRESS chooses another bus).

Commands:
  list                  every configured meter: status, model and serial, error rate
  show PATH             all values of one meter, with status and error rate
  watch [PATH]          live table of all meters or of one, refreshed every second
                        until Ctrl-C (exit status 0) or --count refreshes
  read ADDR REG         prints holding register REG of slave ADDR on the external
                        RS-485 channel
  write ADDR REG VALUE  writes VALUE to that register and prints "ok"
  test-rs485            RS-485 loop test between the two ports; prints "RS-485 loop
                        test passed" or "failed" (meterd in production-test mode)

Options:
  --json                machine-readable JSON output (list, show, watch, read,
                        test-rs485); watch writes one document per line
  --count N             watch: stop after N refreshes
  -h, --help            this text
  -v, --version         the version of meterctl

PATH is modbus/CHANNEL/ADDRESS for an RS-485 meter (channel 1 external, 2 internal;
address 1..255) or modbus/IP-ADDRESS for a Modbus TCP meter (IPv4 in dotted
decimal, or IPv6). ADDR is 1..247; REG and VALUE are 0..65535; numbers are decimal
or hexadecimal with 0x.

meterd answers 0 both for a register that holds 0 and for a read that failed (slave
absent, exception), so a read of 0 does not prove that the slave answered.
A value that a meter has not delivered shows as "-" (null in JSON).

Exit status:
  0  success
  1  operation failed: no such meter, write refused or not answered, loop test
     failed, unexpected answer from meterd
  2  usage error: unknown command or option, malformed path, argument out of range
     or not a number
  3  meterd not available: bus unreachable, meterd not running or not answering,
     or not in the mode the command needs
)";

} // namespace

// The options are described in the usage text, which is written out as a whole.
CommandLine::CommandLine()
    : _helpOption(QStringList { QStringLiteral("h"), QStringLiteral("help") })
    , _versionOption(QStringList { QStringLiteral("v"), QStringLiteral("version") })
    , _jsonOption(QStringLiteral("json"))
    , _countOption(QStringLiteral("count"), QString(), QStringLiteral("N"))
{
    _parser.addOptions({ _helpOption, _versionOption, _jsonOption, _countOption });
}

bool CommandLine::parse(const QStringList &arguments)
{
    if (!_parser.parse(arguments))
        return _fail(_parser.errorText());
    if (_parser.isSet(_helpOption)) {
        _invocation.command = Command::Help;
        return true;
    }
    if (_parser.isSet(_versionOption)) {
        _invocation.command = Command::Version;
        return true;
    }
    QStringList positional = _parser.positionalArguments();
    if (positional.isEmpty())
        return _fail(QStringLiteral("no command given; see meterctl --help"));
    const QString name = positional.takeFirst();
    return _parseCommand(name, positional) && _checkOptions();
}

QString CommandLine::helpText() const
{
    return QString::fromUtf8(usage);
}

QString CommandLine::versionText() const
{
    return QStringLiteral("meterctl %1\n").arg(QStringLiteral(METERCTL_VERSION));
}

bool CommandLine::_parseCommand(const QString &name, const QStringList &arguments)
{
    for (const CommandSyntax &syntax : commands) {
        if (name != QLatin1String(syntax.name))
            continue;
        if (arguments.size() < syntax.minimum || arguments.size() > syntax.maximum)
            return _fail(QStringLiteral("usage: meterctl %1 %2")
                             .arg(name, QLatin1String(syntax.arguments))
                             .trimmed());
        _invocation.command = syntax.kind;
        switch (syntax.kind) {
        case Command::Show:
            return _parsePath(arguments.at(0));
        case Command::Watch:
            return (arguments.isEmpty() || _parsePath(arguments.at(0))) && _parseCount();
        case Command::Read:
            return _parseRegister(arguments);
        case Command::Write:
            return _parseRegister(arguments)
                && _parseNumber(QStringLiteral("VALUE"), arguments.at(2), 0, largestRegisterWord,
                    &_invocation.value);
        default:
            return true;
        }
    }
    return _fail(QStringLiteral("unknown command \"%1\"; see meterctl --help").arg(name));
}

bool CommandLine::_parsePath(const QString &text)
{
    if (!MeterPath::isWellFormed(text))
        return _fail(QStringLiteral(
            "malformed meter path \"%1\": expected modbus/CHANNEL/ADDRESS or modbus/IP-ADDRESS")
                         .arg(text));
    _invocation.path = text;
    return true;
}

bool CommandLine::_parseRegister(const QStringList &arguments)
{
    return _parseNumber(QStringLiteral("ADDR"), arguments.at(0), firstSlaveAddress,
               lastSlaveAddress, &_invocation.address)
        && _parseNumber(QStringLiteral("REG"), arguments.at(1), 0, largestRegisterWord,
            &_invocation.registerAddress);
}

bool CommandLine::_parseNumber(
    const QString &what, const QString &text, quint32 minimum, quint32 maximum, quint16 *number)
{
    const std::optional<quint32> parsed = NumberArgument::parse(text, minimum, maximum);
    if (!parsed)
        return _fail(QStringLiteral("%1 must be a number from %2 to %3, not \"%4\"")
                         .arg(what)
                         .arg(minimum)
                         .arg(maximum)
                         .arg(text));
    *number = quint16(*parsed);
    return true;
}

bool CommandLine::_parseCount()
{
    if (!_parser.isSet(_countOption))
        return true;
    const QString text = _parser.value(_countOption);
    const std::optional<quint32> count = NumberArgument::parse(text, 1, INT_MAX);
    if (!count)
        return _fail(QStringLiteral("--count must be a number from 1 to %1, not \"%2\"")
                         .arg(INT_MAX)
                         .arg(text));
    _invocation.count = int(*count);
    return true;
}

bool CommandLine::_checkOptions()
{
    if (_parser.isSet(_countOption) && _invocation.command != Command::Watch)
        return _fail(QStringLiteral("--count is only for watch"));
    if (_parser.isSet(_jsonOption) && _invocation.command == Command::Write)
        return _fail(QStringLiteral("write has no --json output; it prints \"ok\" or fails"));
    _invocation.json = _parser.isSet(_jsonOption);
    return true;
}

bool CommandLine::_fail(const QString &message)
{
    _error = message;
    return false;
}
