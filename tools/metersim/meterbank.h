#pragma once

#include <QObject>
#include <QTimer>
#include <map>
#include <memory>

class Meter;

// All meters on the line, by slave id, and the clock that makes their values drift.
class MeterBank : public QObject
{
    Q_OBJECT

public:
    explicit MeterBank(QObject *parent = nullptr);
    ~MeterBank() override;

    // False when the slave id is taken already.
    bool add(std::unique_ptr<Meter> meter);
    Meter *find(int id) const;

private:
    void drift();

    std::map<int, std::unique_ptr<Meter>> _meters;
    QTimer _driftTimer;
};
