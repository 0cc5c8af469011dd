#pragma once

#include <QProcessEnvironment>

class TestFiles;

// The environment of a meterd started by a test: every configuration file and serial device in
// the test's directory (platform.ini, chargemanager.ini, platform.conf, corvix.ini, version,
// ttyModbusExt, ttyModbusOcu), the given bus and notification socket, and no narrowed logging.
QProcessEnvironment daemonEnvironment(
    const TestFiles &files, const QString &busAddress, const QString &notifyPath);
