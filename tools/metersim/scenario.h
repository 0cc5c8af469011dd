#pragma once

#include <QMap>
#include <QString>
#include <memory>
#include <vector>

class Meter;
class QSettings;

// Meters described by an INI file, one group per slave id; see README.md for the keys.
class Scenario
{
public:
    // Appends the file's meters; on failure error names the file, group and key at fault.
    static bool load(
        const QString &path, std::vector<std::unique_ptr<Meter>> *meters, QString *error);

private:
    static std::unique_ptr<Meter> loadMeter(
        const QString &group, QMap<QString, QString> keys, QString *error);
    static QMap<QString, QString> keysOfGroup(QSettings &settings, const QString &group);
};
