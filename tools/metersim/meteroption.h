#pragma once

#include <QString>
#include <memory>

class Meter;

// A meter given on the command line as ID:MODEL[:SERIAL].
class MeterOption
{
public:
    static std::unique_ptr<Meter> create(const QString &text, QString *error);
};
