#include "inifile.h"

#include <QDateTime>
#include <QFileInfo>
#include <QMutex>
#include <QSet>

namespace {

QString fileIdentity(const QString &path)
{
    const QFileInfo info(path);
    return info.absoluteFilePath() + QLatin1Char('|') + QString::number(info.size())
        + QLatin1Char('|') + QString::number(info.lastModified().toMSecsSinceEpoch());
}

QMutex malformedMutex;
QSet<QString> &malformedFiles()
{
    static QSet<QString> files;
    return files;
}

} // namespace

namespace IniFile {

QSettings *open(const QString &path, QObject *parent, QSettings::Status *status)
{
    auto *settings = new QSettings(path, QSettings::IniFormat, parent);
    settings->allKeys();
    const QString identity = fileIdentity(path);
    const QMutexLocker lock(&malformedMutex);
    if (settings->status() == QSettings::FormatError)
        malformedFiles().insert(identity);
    *status = malformedFiles().contains(identity) ? QSettings::FormatError : settings->status();
    return settings;
}

} // namespace IniFile
