#pragma once

#include <QDBusArgument>
#include <QList>

#include <type_traits>

// The station's services exchange enumerations as their numbers, D-Bus type "i", and lists of
// them as "ai". QtDBus will not take a custom type for a basic D-Bus type, so a single value is
// sent as its int; a list is marshalled here. The enumerations have int as their fixed
// underlying type, so any number read from the bus is a valid value of them.
namespace DBusEnum {

template <typename Enum>
QDBusArgument &writeList(QDBusArgument &argument, const QList<Enum> &values)
{
    static_assert(std::is_same_v<std::underlying_type_t<Enum>, int>);
    argument.beginArray(QMetaType::fromType<int>());
    for (const Enum value : values)
        argument << int(value);
    argument.endArray();
    return argument;
}

template <typename Enum>
const QDBusArgument &readList(const QDBusArgument &argument, QList<Enum> &values)
{
    static_assert(std::is_same_v<std::underlying_type_t<Enum>, int>);
    values.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        int number = 0;
        argument >> number;
        values.append(Enum(number));
    }
    argument.endArray();
    return argument;
}

} // namespace DBusEnum
