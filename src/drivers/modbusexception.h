#pragma once

#include <stdexcept>

// A failed request or a bad register lookup inside a register-index driver. It never leaves the
// driver's read: the read catches it and hands its text to the meter's error routine.
class ModbusException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};
