#pragma once

#include "modbusregisterreader.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

// Base of the Carlo Gavazzi RTU drivers. Their measurement registers are described as data (the
// requests to make and the fields to decode from them) and read by one loop here; a driver adds
// its static read and only the quirks its model has.
class CarloGavazziDriver : public ModbusRegisterReader
{
    Q_OBJECT

public:
    enum class Encoding { Int32LswFirst, Int16, Uint16 };
    enum class Quantity {
        Current1,
        Current2,
        Current3,
        Voltage1,
        Voltage2,
        Voltage3,
        PowerFactor1,
        PowerFactor2,
        PowerFactor3,
        Frequency,
        Power,
        Energy,
        EnergyExported
    };
    struct Request
    {
        int address;
        int count;
    };
    struct Field
    {
        int address;
        Encoding encoding;
        Quantity quantity;
        double divisor;
    };
    struct Layout
    {
        std::span<const Request> requests;
        std::span<const Field> fields;
    };
    static constexpr int fieldWidth(Encoding encoding)
    {
        return encoding == Encoding::Int32LswFirst ? 2 : 1;
    }
    static constexpr bool covers(const Request &request, const Field &field)
    {
        return field.address >= request.address
            && field.address + fieldWidth(field.encoding) <= request.address + request.count;
    }
    // Every request fits one Modbus read and every field lies inside a request, so decoding
    // never reaches past the words a request returned.
    static constexpr bool isValidLayout(Layout layout)
    {
        const auto fitsOneRead = [](const Request &request) {
            return request.count >= 1 && request.count <= MODBUS_MAX_READ_REGISTERS;
        };
        const auto isRead = [layout](const Field &field) {
            return field.divisor != 0.0
                && std::any_of(layout.requests.begin(), layout.requests.end(),
                    [&field](const Request &request) { return covers(request, field); });
        };
        return std::all_of(layout.requests.begin(), layout.requests.end(), fitsOneRead)
            && std::all_of(layout.fields.begin(), layout.fields.end(), isRead);
    }

    // The three-phase models share one map and differ only in where the imported energy lies
    // and, for the EM21 retrofit model, in the resolution of the currents.
    struct ThreePhaseLayout
    {
        std::array<Request, 4> requests;
        std::array<Field, 8> fields;
        constexpr Layout layout() const { return { requests, fields }; }
    };
    static constexpr ThreePhaseLayout threePhaseLayout(
        int energyAddress, double currentDivisor = 1000.0)
    {
        return { { { { 0, 6 }, { 12, 6 }, { 40, 2 }, { energyAddress, 2 } } },
            { { { 0, Encoding::Int32LswFirst, Quantity::Voltage1, 10.0 },
                { 2, Encoding::Int32LswFirst, Quantity::Voltage2, 10.0 },
                { 4, Encoding::Int32LswFirst, Quantity::Voltage3, 10.0 },
                { 12, Encoding::Int32LswFirst, Quantity::Current1, currentDivisor },
                { 14, Encoding::Int32LswFirst, Quantity::Current2, currentDivisor },
                { 16, Encoding::Int32LswFirst, Quantity::Current3, currentDivisor },
                { 40, Encoding::Int32LswFirst, Quantity::Power, 10.0 },
                { energyAddress, Encoding::Int32LswFirst, Quantity::Energy, 10.0 } } } };
    }

    bool readValues(modbus_t *context) override;

protected:
    static constexpr int idCodeRegister = 11;
    static constexpr int versionRegister = 770;
    static constexpr int serialRegister = 0x5000;

    CarloGavazziDriver(ModbusReaderParent *meter, quint8 address, Layout layout);

    // A decoded, scaled value on its way into the reading; the default passes it on. Adjusting
    // value by value rather than the finished reading is deliberate: GCC 12 at -O2 vectorizes two
    // adjacent double-to-float-to-double round trips on a struct into nothing.
    virtual double finishValue(Quantity quantity, double value) const;
    // For a model whose map depends on what its static read found; reader thread only.
    void setLayout(Layout layout) { _layout = layout; }

    // Static-read steps: a failure runs the meter's error routine with libmodbus's text.
    bool beginStaticRead(modbus_t *context);
    bool readStaticRegisters(modbus_t *context, int address, int count, quint16 *words);
    void reportStaticFailure();
    // EM210 and EM300 meters: writes 0 to register 4356, then reads register 50 and turns it into
    // the static extra value. A refused write fails without running the error routine.
    std::optional<quint32> readExtraAfterWrite(modbus_t *context);
    static quint32 extraFromFlag(quint16 flag) { return flag != 0 ? 2 : 1; }

private:
    static double decode(const Field &field, const quint16 *words);

    Layout _layout;
};
