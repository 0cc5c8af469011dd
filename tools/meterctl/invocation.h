#pragma once

#include <QString>

namespace Command {
enum Kind { Help, Version, List, Show, Watch, Read, Write, TestRs485 };
}

// What the command line asked for, checked and converted; only the fields the command uses are
// meaningful.
struct Invocation
{
    Command::Kind command = Command::Help;
    QString path;
    quint16 address = 0;
    quint16 registerAddress = 0;
    quint16 value = 0;
    bool json = false;
    // Number of watch refreshes; 0 means until interrupted.
    int count = 0;
};
