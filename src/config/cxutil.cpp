#include "cxutil.h"

#include "configurationmanager.h"
#include "inifile.h"
#include "pathoverride.h"

#include <QDebug>
#include <QFile>
#include <QHostAddress>
#include <QSettings>

#include <memory>

namespace {

const char *const tcpSignature
    = "static QList<QString> CxUtil::_requiredTCPFeedbackMeters(const QString&)";
const char *const rtuSignature
    = "static QList<ModbusPath> CxUtil::_requiredFeedbackMeters(const QString&)";

void appendValidPath(QList<ModbusPath> &paths, const QString &text)
{
    const ModbusPath path = ModbusPath::fromPathString(text);
    if (path.channel != Channel::Invalid)
        paths.append(path);
}

} // namespace

QString CxUtil::configurationPath()
{
    return PathOverride::path("CM_CORVIXINI", QStringLiteral("/mnt/data/etc/corvix.ini"));
}

bool CxUtil::feedbackConfigurationActive(const ConfigurationManager &configuration)
{
    return configuration.value(Settings::Localcontroller).toCorvixType()
        == CorvixTypes::FeedbackConfiguration
        && QFile::exists(configurationPath());
}

bool CxUtil::homeMeterRequired(const ConfigurationManager &configuration)
{
    return configuration.value(Settings::Localcontroller).toCorvixType() == CorvixTypes::HomeMeter
        && !configuration.value(Settings::CXHomeMeterType).isCxAir();
}

QList<QString> CxUtil::requiredTCPFeedbackMeters()
{
    return _requiredTCPFeedbackMeters(configurationPath());
}

QList<ModbusPath> CxUtil::requiredFeedbackMeters()
{
    return _requiredFeedbackMeters(configurationPath());
}

QList<QString> CxUtil::_requiredTCPFeedbackMeters(const QString &path)
{
    QSettings::Status status = QSettings::NoError;
    const std::unique_ptr<QSettings> file(IniFile::open(path, nullptr, &status));
    if (status != QSettings::NoError) {
        qCritical() << tcpSignature << "Could not open CORVIX configuration:" << path;
        return {};
    }

    QList<QString> addresses;
    const QStringList groups = file->childGroups();
    for (const QString &group : groups) {
        file->beginGroup(group);
        if (file->contains(QStringLiteral("meter"))) {
            const QStringList parts
                = file->value(QStringLiteral("meter")).toString().split(QLatin1Char('/'));
            if (parts.size() == 2 && parts.at(0) == QLatin1String("modbus")
                && !QHostAddress(parts.at(1)).isNull())
                addresses.append(parts.at(1));
        }
        file->endGroup();
    }
    return addresses;
}

QList<ModbusPath> CxUtil::_requiredFeedbackMeters(const QString &path)
{
    QSettings::Status status = QSettings::NoError;
    const std::unique_ptr<QSettings> file(IniFile::open(path, nullptr, &status));
    if (status != QSettings::NoError) {
        qCritical() << rtuSignature << "Could not open corvix configuration!";
        return {};
    }

    QList<ModbusPath> paths;
    const QStringList groups = file->childGroups();
    for (const QString &group : groups) {
        file->beginGroup(group);
        if (file->contains(QStringLiteral("meter")))
            appendValidPath(paths, file->value(QStringLiteral("meter")).toString());
        for (const QString &deprecatedKey :
            { QStringLiteral("gcumeter"), QStringLiteral("meterpath") }) {
            if (file->contains(deprecatedKey)) {
                qWarning() << rtuSignature << "Deprecated configuration format detected!";
                appendValidPath(paths, file->value(deprecatedKey).toString());
            }
        }
        file->endGroup();
    }
    return paths;
}
