#pragma once

#include <QList>
#include <QMap>
#include <QtGlobal>
#include <optional>

class MeterValues;
struct QuantityRegister;
struct RegisterLayout;

// The registers of one meter at one moment, encoded the way the meter puts them on the wire.
class RegisterImage
{
public:
    RegisterImage(const RegisterLayout &layout, const MeterValues &values,
        const QMap<quint16, quint16> &writable);

    // Registers address .. address + count - 1, or nothing when any of them does not exist.
    std::optional<QList<quint16>> read(quint16 address, int count) const;

private:
    void placeMeasurements(const RegisterLayout &layout, const MeterValues &values);
    void placeIdentification(const RegisterLayout &layout, const MeterValues &values);
    void placeSerial(const RegisterLayout &layout, const QByteArray &serial);
    void place(quint16 address, const QList<quint16> &words);

    QMap<quint16, quint16> _registers;
};
