#include "scenario.h"

#include "meter.h"

#include <QFileInfo>
#include <QSettings>

namespace {

const QString ModelKey = QStringLiteral("model");
const QString FaultKey = QStringLiteral("fault");

// QSettings turns a value with commas into a list; a scenario value is always one text.
QString textOf(const QVariant &value)
{
    return value.typeId() == QMetaType::QStringList ? value.toStringList().join(u',')
                                                    : value.toString();
}

}

bool Scenario::load(
    const QString &path, std::vector<std::unique_ptr<Meter>> *meters, QString *error)
{
    if (!QFileInfo(path).isReadable()) {
        *error = QStringLiteral("%1: cannot read the file").arg(path);
        return false;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        *error = QStringLiteral("%1: not an INI file").arg(path);
        return false;
    }
    if (!settings.childKeys().isEmpty()) {
        *error = QStringLiteral("%1: keys outside a [slave id] group").arg(path);
        return false;
    }
    for (const QString &group : settings.childGroups()) {
        auto meter = loadMeter(group, keysOfGroup(settings, group), error);
        if (!meter) {
            *error = QStringLiteral("%1: [%2] %3").arg(path, group, *error);
            return false;
        }
        meters->push_back(std::move(meter));
    }
    return true;
}

std::unique_ptr<Meter> Scenario::loadMeter(
    const QString &group, QMap<QString, QString> keys, QString *error)
{
    const auto id = Meter::parseId(group);
    if (!id) {
        *error = QStringLiteral("group name must be a slave id %1..%2")
                     .arg(Meter::FirstId)
                     .arg(Meter::LastId);
        return nullptr;
    }
    const auto model = MeterModel::fromName(keys.take(ModelKey));
    if (!model) {
        *error = QStringLiteral("model must be one of %1").arg(MeterModel::names().join(u' '));
        return nullptr;
    }
    const QString faultText = keys.take(FaultKey);
    const auto fault
        = faultText.isEmpty() ? std::optional(Fault::None) : Fault::fromName(faultText);
    if (!fault) {
        *error = QStringLiteral("fault must be one of %1").arg(Fault::names().join(u' '));
        return nullptr;
    }
    auto meter = std::make_unique<Meter>(*id, *model);
    meter->setFault(*fault);
    for (auto key = keys.cbegin(); key != keys.cend(); ++key) {
        if (!meter->set(key.key(), key.value(), error))
            return nullptr;
    }
    return meter;
}

// Keys in lower case, so that "Voltage1" and "voltage1" are the same key as on stdin.
QMap<QString, QString> Scenario::keysOfGroup(QSettings &settings, const QString &group)
{
    QMap<QString, QString> keys;
    settings.beginGroup(group);
    for (const QString &key : settings.childKeys())
        keys.insert(key.toLower(), textOf(settings.value(key)));
    settings.endGroup();
    return keys;
}
