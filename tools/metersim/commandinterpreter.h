#pragma once

#include "fault.h"

#include <QObject>
#include <QStringList>

class Meter;
class MeterBank;

// Carries out the runtime commands that tests send to change the meters while they run.
class CommandInterpreter : public QObject
{
    Q_OBJECT

public:
    explicit CommandInterpreter(MeterBank &bank, QObject *parent = nullptr);

    // The one-line answer: "ok" or "error <reason>".
    QString execute(const QString &line);

signals:
    void quitRequested();

private:
    QString fault(const QStringList &words);
    QString setFault(const QString &idText, Fault::Kind fault);
    QString set(const QStringList &words);
    QString quit();
    Meter *meter(const QString &idText, QString *error) const;

    MeterBank &_bank;
};
