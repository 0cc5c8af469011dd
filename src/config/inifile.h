#pragma once

#include <QSettings>
#include <QString>

class QObject;

namespace IniFile {
// Opens an INI file, parses all of it at once and tells whether it could be parsed.
// QSettings parses sections lazily: until then its status says nothing, and a key of a section
// followed by one of its subsections ("[outlet]" then "[outlet/1]") can be missed. It also
// caches parsed files process-wide and reports a format error only to the first reader, so the
// verdict is remembered here for every later reader of the unchanged file.
QSettings *open(const QString &path, QObject *parent, QSettings::Status *status);
}
