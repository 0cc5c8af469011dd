#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QtGlobal>

// Captures the log lines emitted while it exists, from any thread, so tests can assert on the
// system's own messages. Lines are still printed as usual.
class LogCapture
{
public:
    struct Line
    {
        QString category;
        QtMsgType type;
        QString text;
    };

    LogCapture();
    ~LogCapture();

    QList<Line> lines() const;
    void clear();

    // Lines of the category and level whose text contains the fragment.
    int count(const QString &category, QtMsgType type, const QString &fragment) const;
    bool contains(const QString &category, QtMsgType type, const QString &fragment) const
    {
        return count(category, type, fragment) > 0;
    }
    // Lines whose text contains the fragment, any category or level.
    int count(const QString &fragment) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &text);

    mutable QMutex _mutex;
    QList<Line> _lines;
    QtMessageHandler _previous;
};
