#pragma once

#include "framereader.h"

#include <QObject>
#include <QSocketNotifier>

class Meter;
class MeterBank;
class SerialLine;
struct ModbusRequest;

// Answers the requests on the line for every meter in the bank, each as its fault dictates.
class ModbusServer : public QObject
{
    Q_OBJECT

public:
    ModbusServer(SerialLine &line, MeterBank &bank, QObject *parent = nullptr);

signals:
    // The other side of the line has gone for good; nothing more will arrive.
    void lineLost();

private:
    void onReadable();
    void onFrame(const QByteArray &frame);
    void respond(Meter &meter, const ModbusRequest &request);
    void sendLate(const QByteArray &reply);

    SerialLine &_line;
    MeterBank &_bank;
    FrameReader _reader;
    QSocketNotifier _notifier;
};
