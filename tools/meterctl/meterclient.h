#pragma once

#include "exitcode.h"
#include "measurementmanagerproxy.h"
#include "metersnapshot.h"
#include "ptsproxy.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingReply>
#include <QList>
#include <QStringList>

#include <optional>

// Why a call to the daemon came to nothing, in words for the user, and the exit status it
// calls for.
struct ClientFailure
{
    ExitCode::Code code = ExitCode::Failed;
    QString message;
};

// meterd as seen from the system bus: the measurement service and the production-test object.
// Each call answers its value, or nothing and leaves the reason in failure().
class MeterClient
{
public:
    MeterClient();

    std::optional<QStringList> meterList();
    std::optional<MeterSnapshot> snapshot(const QString &path);
    std::optional<QList<MeterSnapshot>> snapshots(const QStringList &paths);
    std::optional<quint16> readRegister(quint16 address, quint16 registerAddress);
    // False when the slave refused the write or did not answer.
    std::optional<bool> writeRegister(quint16 address, quint16 registerAddress, quint16 value);
    std::optional<bool> testRs485();

    ClientFailure failure() const { return _failure; }

private:
    template <typename T>
    std::optional<T> _value(QDBusPendingReply<T> reply, const QString &objectPath)
    {
        reply.waitForFinished();
        if (reply.isError()) {
            _failure = _failureFor(reply.error(), objectPath);
            return std::nullopt;
        }
        return reply.value();
    }

    ClientFailure _failureFor(const QDBusError &error, const QString &objectPath) const;

    QDBusConnection _bus;
    MeasurementManagerProxy _measurement;
    PtsProxy _pts;
    ClientFailure _failure;
};
