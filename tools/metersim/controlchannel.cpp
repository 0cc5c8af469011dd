#include "controlchannel.h"

#include "logging.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {
// No command comes near this; a longer line is garbage and must not grow the buffer forever.
constexpr qsizetype MaximumLine = 4096;
}

ControlChannel::ControlChannel(QObject *parent)
    : QObject(parent)
{
    if (::fcntl(STDIN_FILENO, F_GETFD) < 0) {
        qCInfo(lcMeterSim) << "no stdin, runtime control is off";
        return;
    }
    _notifier = std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read);
    connect(_notifier.get(), &QSocketNotifier::activated, this, &ControlChannel::onReadable);
}

void ControlChannel::send(const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, bytes.size(), stdout);
    std::fflush(stdout);
}

void ControlChannel::onReadable()
{
    char buffer[1024];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count <= 0) {
        onEndOfInput();
        return;
    }
    _pending.append(buffer, count);
    takeLines();
}

// Tests may close stdin once they are done giving commands; the meters keep running.
void ControlChannel::onEndOfInput()
{
    _notifier->setEnabled(false);
    qCInfo(lcMeterSim) << "stdin closed, meters keep running";
    if (_pending.isEmpty())
        return;
    _pending.append('\n');
    takeLines();
}

void ControlChannel::takeLines()
{
    for (qsizetype end = _pending.indexOf('\n'); end >= 0; end = _pending.indexOf('\n')) {
        const QString line = QString::fromUtf8(_pending.left(end)).trimmed();
        _pending.remove(0, end + 1);
        if (std::exchange(_skippingLongLine, false) || line.isEmpty())
            continue;
        emit lineReceived(line);
    }
    if (_pending.size() > MaximumLine) {
        if (!_skippingLongLine)
            send(QStringLiteral("error line too long"));
        _pending.clear();
        _skippingLongLine = true;
    }
}
