#include "ptypair.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QThread>

PtyPair::PtyPair()
{
    const QString options = QStringLiteral("pty,raw,echo=0,link=%1");
    _socat.start(QStringLiteral("socat"), { options.arg(first()), options.arg(second()) });
    if (!_socat.waitForStarted())
        return;
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 5000 && !(QFileInfo::exists(first()) && QFileInfo::exists(second())))
        QThread::msleep(10);
    _ready = QFileInfo::exists(first()) && QFileInfo::exists(second());
}

PtyPair::~PtyPair()
{
    _socat.terminate();
    _socat.waitForFinished();
}
