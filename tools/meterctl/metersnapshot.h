#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QVariantMap>

// What the measurement service said about one meter at one moment: its value map, its
// identification and its error rate. Anything the reply lacks or holds in the wrong type reads
// as not delivered (NaN, empty), never as a number the meter did not send.
class MeterSnapshot
{
public:
    MeterSnapshot(
        const QString &path, const QVariantMap &values, const QString &info, double errorRate);

    QString path() const { return _path; }
    // "Connected", "Faulty", "NotFound"; empty when the daemon has no values for the meter
    // (configured on a channel it does not read).
    QString status() const { return _status; }
    QString info() const { return _info; }
    // Whether info() is "MODEL:SERIAL" with something in it; model() and serial() are empty
    // otherwise.
    bool hasIdentity() const;
    QString model() const;
    QString serial() const;
    // Percent; NaN when the meter has no transport whose reads could be counted.
    double errorRate() const { return _errorRate; }
    // Invalid when not delivered.
    QDateTime lastUpdate() const { return _lastUpdate; }
    double value(const char *key) const;

private:
    static double _number(const QVariant &variant);
    static QDateTime _time(const QVariant &variant);

    QString _path;
    QString _status;
    QString _info;
    double _errorRate;
    QDateTime _lastUpdate;
    QHash<QString, double> _values;
};
