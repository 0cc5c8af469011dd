#include "chargemanagerdbusinterface.h"

#include "sessionmanagerdbusif.h"

#include <QDBusConnection>

ChargeManagerDBusInterface::ChargeManagerDBusInterface(QObject *parent)
    : QObject(parent)
{
    CommonTypes::registerTypes();
    _sessionManager
        = std::make_unique<SessionManagerDBusIf>(QStringLiteral("com.tessaline.gridcontroller"),
            QStringLiteral("/SessionManager"), QDBusConnection::systemBus());
    // The generated proxy types every "i" as int; the mode is read as what it stands for here.
    connect(_sessionManager.get(), &SessionManagerDBusIf::SetCpStateMode, this,
        [this](EvseNumber_t port, int mode) {
            _setCpStateMode(port, CommonTypes::CpStateMode(mode));
        });
}

ChargeManagerDBusInterface::~ChargeManagerDBusInterface() = default;

CommonTypes::CpStateMode ChargeManagerDBusInterface::cpStateMode(EvseNumber_t port) const
{
    return _cpStateModes.value(port, CommonTypes::MODE_NORMAL);
}

void ChargeManagerDBusInterface::_setCpStateMode(
    EvseNumber_t outletId, CommonTypes::CpStateMode cpStateMode)
{
    // An outlet the session manager has not spoken of yet runs in the normal mode.
    auto stored = _cpStateModes.find(outletId);
    if (stored == _cpStateModes.end())
        stored = _cpStateModes.insert(outletId, CommonTypes::MODE_NORMAL);
    if (*stored == cpStateMode)
        return;
    *stored = cpStateMode;
    emit cpStateModeUpdated(outletId);
}
