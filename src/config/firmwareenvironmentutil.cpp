#include "firmwareenvironmentutil.h"

#include "pathoverride.h"

#include <QDebug>
#include <QFile>
#include <QProcess>

namespace {

const char *const environmentMapSignature
    = "static QMap<QString, QString> FirmwareEnvironmentUtil::environmentMap()";

// key=value lines; text after a second '=' is dropped and a later key replaces an earlier one.
QMap<QString, QString> parseEnvironment(QIODevice &device)
{
    QMap<QString, QString> map;
    while (!device.atEnd()) {
        QString line = QString::fromUtf8(device.readLine());
        if (line.endsWith(QLatin1Char('\n')))
            line.chop(1);
        if (!line.contains(QLatin1Char('=')))
            continue;
        const QStringList parts = line.split(QLatin1Char('='));
        map.insert(parts.at(0), parts.at(1));
    }
    return map;
}

} // namespace

QMap<QString, QString> FirmwareEnvironmentUtil::environmentMap()
{
    const QString path
        = PathOverride::path("CM_PLATFORMCONFIG", QStringLiteral("/var/tmp/platform.conf"));
    qInfo() << environmentMapSignature << path;

    if (!QFile::exists(path)) {
        // The platformcfg service writes the file at boot; ask it once to write it again.
        QProcess::execute(QStringLiteral("/bin/systemctl"),
            { QStringLiteral("restart"), QStringLiteral("platformcfg.service") });
    }

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qCritical() << environmentMapSignature << "Failed to read platform.conf file";
        return {};
    }
    return parseEnvironment(file);
}

QString FirmwareEnvironmentUtil::firmwareVersion()
{
    QFile file(PathOverride::path("CM_VERSIONFILE", QStringLiteral("/etc/version")));
    if (!file.exists() || !file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QStringLiteral("N/A");
    // readLine's limit counts a terminating NUL, so 21 keeps the first 20 bytes.
    return QString::fromUtf8(file.readLine(21).trimmed());
}
