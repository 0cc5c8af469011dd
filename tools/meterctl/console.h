#pragma once

#include <QString>

#include <cstdio>

// Standard output and standard error of the command. Everything is flushed at once, so that a
// script reading the live view through a pipe gets each refresh when it happens.
class Console
{
public:
    void print(const QString &text);
    // "meterctl: MESSAGE" as one line on standard error, whatever line breaks the message holds.
    void printError(const QString &message);
    bool isTerminal() const;
    // Moves the cursor home and clears, for redrawing in place.
    void clearScreen();

private:
    static void _write(std::FILE *stream, const QString &text);
};
