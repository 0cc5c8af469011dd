// The contents of the configuration files: platform.ini and chargemanager.ini through the
// ConfigurationManager (every setting asked afterwards, with each conversion, and the lists of
// required meters), corvix.ini through CxUtil, platform.conf and the version file through
// FirmwareEnvironmentUtil.
//
// Input: the files in the order platform.ini, chargemanager.ini, platform.conf, corvix.ini,
// version, separated by a line "%%". A file the input does not reach does not exist, except
// platform.conf, which is then empty: a missing one would make the daemon ask systemd for it.

#include "configurationmanager.h"
#include "cxutil.h"
#include "firmwareenvironmentutil.h"
#include "fuzzapplication.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QTemporaryDir>

#include <array>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

enum File { PlatformIni, ChargemanagerIni, PlatformConf, CorvixIni, Version, FileCount };

constexpr std::array<const char *, FileCount> fileNames { "platform.ini", "chargemanager.ini",
    "platform.conf", "corvix.ini", "version" };
constexpr std::array<const char *, FileCount> variables { "CM_PLATFORMINI",
    "CM_CHARGEMANAGERCONFIG", "CM_PLATFORMCONFIG", "CM_CORVIXINI", "CM_VERSIONFILE" };

// Removed when the run ends; a crashed run leaves it in $TMPDIR.
std::optional<QTemporaryDir> directory;
// Seconds since the epoch given to the files of each input in turn. QSettings (and the daemon's
// memory of malformed files) know a file by its path, size and time stamp; a new stamp for every
// input makes each one a new file to them.
qint64 stamp = 1000000000;

QString pathOf(File file)
{
    return directory->filePath(QLatin1String(fileNames[file]));
}

using Contents = std::array<std::optional<QByteArray>, FileCount>;

Contents split(const QByteArray &input)
{
    static const QByteArray separator("\n%%\n");
    Contents contents;
    qsizetype start = 0;
    for (int file = 0; file < FileCount && start <= input.size(); ++file) {
        qsizetype end = input.indexOf(separator, start);
        if (end < 0)
            end = input.size();
        contents[file] = input.mid(start, end - start);
        start = end + separator.size();
    }
    if (!contents[PlatformConf])
        contents[PlatformConf] = QByteArray();
    return contents;
}

void write(File file, const std::optional<QByteArray> &content)
{
    const QString path = pathOf(file);
    if (!content) {
        QFile::remove(path);
        return;
    }
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || out.write(*content) != content->size())
        qFatal("cannot write %s", qPrintable(path));
    out.close();
    const timespec times[2] = { { stamp, 0 }, { stamp, 0 } };
    if (::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) != 0)
        qFatal("cannot stamp %s", qPrintable(path));
}

void checkEnvironment()
{
    const QMap<QString, QString> environment = FirmwareEnvironmentUtil::environmentMap();
    for (auto it = environment.cbegin(); it != environment.cend(); ++it) {
        // A line is one entry: its key ends at the first '=', its value at the next.
        FUZZ_REQUIRE(!it.key().contains(QLatin1Char('=')) && !it.key().contains(QLatin1Char('\n')));
        FUZZ_REQUIRE(
            !it.value().contains(QLatin1Char('=')) && !it.value().contains(QLatin1Char('\n')));
    }
    const QString version = FirmwareEnvironmentUtil::firmwareVersion();
    FUZZ_REQUIRE(
        version == QLatin1String("N/A") || (version.size() <= 20 && version == version.trimmed()));
}

// A fresh identity per call cannot be compared; every other default can.
bool hasFixedDefault(Setting setting)
{
    return setting.defaultValue() == setting.defaultValue();
}

void checkSettings(const ConfigurationManager &configuration, const Contents &contents)
{
    for (const Setting setting : Setting::all()) {
        const SettingValue value = configuration.value(setting);
        configuration.intValue(setting);
        configuration.boolValue(setting);
        value.toHostAddress();
        value.toConnectorType();
        value.isCxAir();
        const EnergyMeterType meterType = value.toEnergyMeterType();
        FUZZ_REQUIRE(
            meterType >= EnergyMeterTypes::Lowest && meterType <= EnergyMeterTypes::Highest);
        const PlugLockEngine lockEngine = value.toLockEngineType();
        FUZZ_REQUIRE(
            lockEngine >= PlugLockEngines::Lowest && lockEngine <= PlugLockEngines::Highest);
        const CorvixType corvixType = value.toCorvixType();
        FUZZ_REQUIRE(
            corvixType >= CorvixTypes::NoLocalGrid && corvixType <= CorvixTypes::HomeMeter);

        // Without its file a setting reads as its default.
        const bool fileMissing
            = (setting.storageClass() == StorageClasses::Platform && !contents[PlatformIni])
            || (setting.storageClass() == StorageClasses::Chargemanager
                && !contents[ChargemanagerIni]);
        if (fileMissing && hasFixedDefault(setting))
            FUZZ_REQUIRE(value == setting.defaultValue());
    }
    configuration.value(Setting());
    FUZZ_REQUIRE(
        configuration.intValue(Settings::GetConfigurationMaxKeys) == Setting::all().size());
    configuration.vendor();
    configuration.model();
    configuration.modelVersion();
    // Outlet 1 has each of these keys, outlet 3 none.
    for (const quint32 outlet : { 1U, 3U }) {
        configuration.chargeModePriority(outlet);
        configuration.evseId(outlet);
        configuration.plcModem(outlet);
        configuration.plcCapable(outlet);
    }
}

void checkRequiredMeters(const ConfigurationManager &configuration, const Contents &contents)
{
    const bool feedback = configuration.value(Settings::Localcontroller).toCorvixType()
        == CorvixTypes::FeedbackConfiguration;
    const QList<RequiredModbusMeter> meters = configuration.requiredModbusMeters();
    const QList<QString> tcpMeters = configuration.requiredTCPModbusMeters();
    // Feedback meters come only from an existing corvix.ini of a station set up for feedback.
    if (!feedback || !contents[CorvixIni])
        FUZZ_REQUIRE(meters.isEmpty() && tcpMeters.isEmpty());
    for (const RequiredModbusMeter &meter : meters) {
        FUZZ_REQUIRE(meter.path.channel != Channel::Invalid && meter.path.address >= 1);
        FUZZ_REQUIRE(meter.type == EnergyMeterTypes::ModbusRtu);
    }
    for (const QString &address : tcpMeters)
        FUZZ_REQUIRE(!QHostAddress(address).isNull());
    if (CxUtil::homeMeterRequired(configuration))
        FUZZ_REQUIRE(configuration.value(Settings::Localcontroller).toCorvixType()
            == CorvixTypes::HomeMeter);
}

// The feedback file's lists whatever the charge manager's settings say.
void checkCorvix()
{
    for (const ModbusPath &path : CxUtil::requiredFeedbackMeters())
        FUZZ_REQUIRE(path.channel != Channel::Invalid && path.address >= 1);
    for (const QString &address : CxUtil::requiredTCPFeedbackMeters())
        FUZZ_REQUIRE(!QHostAddress(address).isNull());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***argv)
{
    FuzzApplication::start((*argv)[0]);
    directory.emplace(QDir::tempPath() + QStringLiteral("/fuzz_configfiles-XXXXXX"));
    if (!directory->isValid())
        qFatal("no temporary directory");
    for (int file = 0; file < FileCount; ++file)
        qputenv(variables[file], QFile::encodeName(pathOf(File(file))));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Contents contents
        = split(QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size)));
    ++stamp;
    for (int file = 0; file < FileCount; ++file)
        write(File(file), contents[file]);

    checkEnvironment();
    checkCorvix();
    const ConfigurationManager configuration;
    // The unit runs its production test whenever one of the two INI files is missing.
    if (!contents[PlatformIni] || !contents[ChargemanagerIni])
        FUZZ_REQUIRE(configuration.isPtsMode());
    checkSettings(configuration, contents);
    checkRequiredMeters(configuration, contents);
    return 0;
}
