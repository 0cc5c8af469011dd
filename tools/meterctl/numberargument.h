#pragma once

#include <QString>

#include <optional>

// A number typed on the command line: decimal, or hexadecimal with a 0x prefix because
// register maps in meter manuals are written that way.
class NumberArgument
{
public:
    // The value when the text is a number within minimum..maximum, else nothing.
    static std::optional<quint32> parse(const QString &text, quint32 minimum, quint32 maximum);
};
