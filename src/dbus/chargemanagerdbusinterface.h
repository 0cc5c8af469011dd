#pragma once

#include "commontypes.h"

#include <QMap>
#include <QObject>

#include <memory>

class SessionManagerDBusIf;

// Follows the session manager's requests to change an outlet's control-pilot mode and keeps
// the mode of each outlet; cpStateModeUpdated(port) tells when one changed.
class ChargeManagerDBusInterface : public QObject
{
    Q_OBJECT

public:
    explicit ChargeManagerDBusInterface(QObject *parent = nullptr);
    ~ChargeManagerDBusInterface() override;

    // MODE_NORMAL until the session manager asks for another.
    CommonTypes::CpStateMode cpStateMode(EvseNumber_t port) const;

signals:
    void cpStateModeUpdated(EvseNumber_t port);

private slots:
    void _setCpStateMode(EvseNumber_t outletId, CommonTypes::CpStateMode cpStateMode);

private:
    std::unique_ptr<SessionManagerDBusIf> _sessionManager;
    QMap<EvseNumber_t, CommonTypes::CpStateMode> _cpStateModes;
};
