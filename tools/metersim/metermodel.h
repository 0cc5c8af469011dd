#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace MeterModel {

enum Type { EM340, EM111, EM210, EM24, EM26, EM540, EM511, EM580, GM3D, GM3T, WM3M6, PAC3220 };

std::optional<Type> fromName(const QString &name);
QString name(Type model);
QStringList names();

}
