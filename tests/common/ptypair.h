#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// Two linked pseudo-terminals with stable paths, standing in for an RS-485 line between two
// devices (socat relays bytes between them).
class PtyPair
{
public:
    PtyPair();
    ~PtyPair();

    bool isReady() const { return _ready; }
    QString first() const { return _dir.filePath(QStringLiteral("first")); }
    QString second() const { return _dir.filePath(QStringLiteral("second")); }

private:
    QTemporaryDir _dir;
    QProcess _socat;
    bool _ready = false;
};
