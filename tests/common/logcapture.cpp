#include "logcapture.h"

#include <QMutexLocker>

namespace {
LogCapture *active = nullptr;
}

LogCapture::LogCapture()
{
    active = this;
    _previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(_previous);
    active = nullptr;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (!active)
        return;
    {
        const QMutexLocker lock(&active->_mutex);
        active->_lines.append({ QString::fromLatin1(context.category), type, text });
    }
    if (active->_previous)
        active->_previous(type, context, text);
}

QList<LogCapture::Line> LogCapture::lines() const
{
    const QMutexLocker lock(&_mutex);
    return _lines;
}

void LogCapture::clear()
{
    const QMutexLocker lock(&_mutex);
    _lines.clear();
}

int LogCapture::count(const QString &category, QtMsgType type, const QString &fragment) const
{
    const QMutexLocker lock(&_mutex);
    return int(std::count_if(_lines.cbegin(), _lines.cend(), [&](const Line &line) {
        return line.category == category && line.type == type && line.text.contains(fragment);
    }));
}

int LogCapture::count(const QString &fragment) const
{
    const QMutexLocker lock(&_mutex);
    return int(std::count_if(_lines.cbegin(), _lines.cend(),
        [&](const Line &line) { return line.text.contains(fragment); }));
}
