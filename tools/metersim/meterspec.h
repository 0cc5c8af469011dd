#pragma once

#include <QString>
#include <memory>

class Meter;

// A meter given on the command line as ID:MODEL[:SERIAL].
class MeterSpec
{
public:
    static std::unique_ptr<Meter> create(const QString &spec, QString *error);
};
