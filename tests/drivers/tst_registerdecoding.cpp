#include "registerdecoding.h"

#include <QTest>

using Words = QList<quint16>;

class TestRegisterDecoding : public QObject
{
    Q_OBJECT

private slots:
    void int32LswFirst_data();
    void int32LswFirst();
    void int32MswFirst_data();
    void int32MswFirst();
    void int16_data();
    void int16();
    void floatMswFirst_data();
    void floatMswFirst();
    void serialFromRegisters_data();
    void serialFromRegisters();
    void textHighByteFirst_data();
    void textHighByteFirst();
    void nibbleVersion_data();
    void nibbleVersion();
    void packed_data();
    void packed();
};

void TestRegisterDecoding::int32LswFirst_data()
{
    QTest::addColumn<Words>("words");
    QTest::addColumn<qint32>("expected");

    QTest::newRow("low word only") << Words { 2301, 0 } << 2301;
    QTest::newRow("high word counts 65536") << Words { 0xE240, 0x0001 } << 123456;
    QTest::newRow("low word above 0x7FFF stays positive") << Words { 0x8000, 0x0000 } << 32768;
    QTest::newRow("negative, high word 0xFFFF") << Words { 0xFB2E, 0xFFFF } << -1234;
    QTest::newRow("minus one") << Words { 0xFFFF, 0xFFFF } << -1;
    QTest::newRow("zero") << Words { 0, 0 } << 0;
    QTest::newRow("maximum") << Words { 0xFFFF, 0x7FFF } << std::numeric_limits<qint32>::max();
    QTest::newRow("minimum") << Words { 0x0000, 0x8000 } << std::numeric_limits<qint32>::min();
}

void TestRegisterDecoding::int32LswFirst()
{
    QFETCH(Words, words);
    QFETCH(qint32, expected);

    QCOMPARE(RegisterDecoding::int32LswFirst(words.constData()), expected);
}

void TestRegisterDecoding::int32MswFirst_data()
{
    QTest::addColumn<Words>("words");
    QTest::addColumn<qint32>("expected");

    QTest::newRow("low word second") << Words { 0, 2301 } << 2301;
    QTest::newRow("high word first counts 65536") << Words { 0x0001, 0xE240 } << 123456;
    QTest::newRow("negative") << Words { 0xFFFF, 0xFB2E } << -1234;
    QTest::newRow("maximum") << Words { 0x7FFF, 0xFFFF } << std::numeric_limits<qint32>::max();
    QTest::newRow("minimum") << Words { 0x8000, 0x0000 } << std::numeric_limits<qint32>::min();
}

void TestRegisterDecoding::int32MswFirst()
{
    QFETCH(Words, words);
    QFETCH(qint32, expected);

    QCOMPARE(RegisterDecoding::int32MswFirst(words.constData()), expected);
}

void TestRegisterDecoding::int16_data()
{
    QTest::addColumn<quint16>("word");
    QTest::addColumn<qint16>("expected");

    QTest::newRow("positive") << quint16(987) << qint16(987);
    QTest::newRow("negative power factor") << quint16(0xFC25) << qint16(-987);
    QTest::newRow("zero") << quint16(0) << qint16(0);
    QTest::newRow("maximum") << quint16(0x7FFF) << qint16(32767);
    QTest::newRow("minimum") << quint16(0x8000) << qint16(-32768);
}

void TestRegisterDecoding::int16()
{
    QFETCH(quint16, word);
    QFETCH(qint16, expected);

    QCOMPARE(RegisterDecoding::int16(word), expected);
}

// Two words decode as a single, four as a double; the most significant word comes first.
void TestRegisterDecoding::floatMswFirst_data()
{
    QTest::addColumn<Words>("words");
    QTest::addColumn<double>("expected");

    QTest::newRow("single 230.5") << Words { 0x4366, 0x8000 } << 230.5;
    QTest::newRow("single, low word matters") << Words { 0x3F80, 0x0001 } << double(1.0000001f);
    QTest::newRow("single -1") << Words { 0xBF80, 0x0000 } << -1.0;
    QTest::newRow("single zero") << Words { 0, 0 } << 0.0;
    QTest::newRow("single NaN") << Words { 0x7FC0, 0 } << qQNaN();
    QTest::newRow("double 1000.5") << Words { 0x408F, 0x4400, 0, 0 } << 1000.5;
    QTest::newRow("double, last word matters") << Words { 0x3FF0, 0, 0, 1 } << 1.0000000000000002;
    QTest::newRow("double -2.5") << Words { 0xC004, 0, 0, 0 } << -2.5;
}

void TestRegisterDecoding::floatMswFirst()
{
    QFETCH(Words, words);
    QFETCH(double, expected);

    const double decoded = words.size() == 2 ? RegisterDecoding::float32MswFirst(words.constData())
                                             : RegisterDecoding::float64MswFirst(words.constData());
    if (qIsNaN(expected))
        QVERIFY(qIsNaN(decoded));
    else
        QCOMPARE(decoded, expected);
}

void TestRegisterDecoding::serialFromRegisters_data()
{
    QTest::addColumn<Words>("words");
    QTest::addColumn<int>("maxBytes");
    QTest::addColumn<QString>("expected");

    // "AB" lies in one register as 0x4241: low byte first.
    QTest::newRow("low byte before high byte")
        << Words { 0x4241, 0x4443 } << 4 << QStringLiteral("ABCD");
    QTest::newRow("zero bytes in the middle dropped")
        << Words { 0x3231, 0x0000, 0x3300, 0x0034 } << 8 << QStringLiteral("1234");
    QTest::newRow("zero padding at the end dropped")
        << Words { 0x3231, 0x0033, 0x0000 } << 6 << QStringLiteral("123");
    QTest::newRow("odd limit keeps the low byte of the last register") << Words { 0x4241, 0x4443,
        0x4645, 0x4847, 0x4A49, 0x4C4B, 0x4E4D } << 13 << QStringLiteral("ABCDEFGHIJKLM");
    QTest::newRow("limit above the registers reads them all")
        << Words { 0x4241 } << 13 << QStringLiteral("AB");
    QTest::newRow("Latin-1 high bytes")
        << Words { 0xFCE9, 0x00B5 } << 4 << QStringLiteral(u"\u00E9\u00FC\u00B5");
    QTest::newRow("all zero") << Words { 0, 0, 0 } << 6 << QString();
    QTest::newRow("no registers") << Words {} << 13 << QString();
    QTest::newRow("zero limit") << Words { 0x4241 } << 0 << QString();
    QTest::newRow("negative limit") << Words { 0x4241 } << -1 << QString();
}

void TestRegisterDecoding::serialFromRegisters()
{
    QFETCH(Words, words);
    QFETCH(int, maxBytes);
    QFETCH(QString, expected);

    const QString serial
        = RegisterDecoding::serialFromRegisters(words.constData(), int(words.size()), maxBytes);
    QCOMPARE(serial, expected);
    QVERIFY(!serial.contains(QChar(0)));
}

void TestRegisterDecoding::textHighByteFirst_data()
{
    QTest::addColumn<Words>("words");
    QTest::addColumn<QString>("expected");

    // "AB" lies in one register as 0x4142: the character sent first comes first.
    QTest::newRow("high byte before low byte")
        << Words { 0x4142, 0x4344 } << QStringLiteral("ABCD");
    QTest::newRow("zero padding dropped")
        << Words { 0x574D, 0x334D, 0x3600, 0x0000 } << QStringLiteral("WM3M6");
    QTest::newRow("zero byte first in a register") << Words { 0x0031, 0x3200 } << "12";
    QTest::newRow("Latin-1 high bytes") << Words { 0xE9FC } << QStringLiteral(u"\u00E9\u00FC");
    QTest::newRow("no registers") << Words {} << QString();
}

void TestRegisterDecoding::textHighByteFirst()
{
    QFETCH(Words, words);
    QFETCH(QString, expected);

    QCOMPARE(RegisterDecoding::textHighByteFirst(words.constData(), int(words.size())), expected);
}

void TestRegisterDecoding::nibbleVersion_data()
{
    QTest::addColumn<quint16>("word");
    QTest::addColumn<QString>("expected");

    QTest::newRow("one digit each") << quint16(0x1203) << QStringLiteral("v1.2.3");
    QTest::newRow("patch in decimal") << quint16(0x2110) << QStringLiteral("v2.1.16");
    QTest::newRow("zero") << quint16(0x0000) << QStringLiteral("v0.0.0");
    QTest::newRow("all bits set") << quint16(0xFFFF) << QStringLiteral("v15.15.255");
}

void TestRegisterDecoding::nibbleVersion()
{
    QFETCH(quint16, word);
    QFETCH(QString, expected);

    QCOMPARE(RegisterDecoding::nibbleVersion(word), expected);
}

enum class Packed { FormatA, FormatB, PowerFactor };
Q_DECLARE_METATYPE(Packed)

double decodePacked(Packed format, const quint16 *words)
{
    switch (format) {
    case Packed::FormatA:
        return RegisterDecoding::packedFormatA(words);
    case Packed::FormatB:
        return RegisterDecoding::packedFormatB(words);
    case Packed::PowerFactor:
        return RegisterDecoding::packedPowerFactor(words);
    }
    return qQNaN();
}

// ISKRA values: two registers, the exponent in the top byte of the first.
void TestRegisterDecoding::packed_data()
{
    QTest::addColumn<Packed>("format");
    QTest::addColumn<Words>("words");
    QTest::addColumn<double>("expected");

    QTest::newRow("A: 1234 x 10^-2") << Packed::FormatA << Words { 0xFE00, 0x04D2 } << 12.34;
    QTest::newRow("A: exponent 0") << Packed::FormatA << Words { 0x0000, 0x04D2 } << 1234.0;
    QTest::newRow("A: positive exponent") << Packed::FormatA << Words { 0x0300, 0x0007 } << 7000.0;
    QTest::newRow("A: mantissa above 2^23 stays positive")
        << Packed::FormatA << Words { 0x00FF, 0xFFFF } << 16777215.0;
    QTest::newRow("A: zero") << Packed::FormatA << Words { 0xFD00, 0x0000 } << 0.0;
    QTest::newRow("A: smallest exponent") << Packed::FormatA << Words { 0x8000, 0x0001 } << 1e-128;
    QTest::newRow("A: largest exponent") << Packed::FormatA << Words { 0x7F00, 0x0001 } << 1e127;
    QTest::newRow("B: negative mantissa") << Packed::FormatB << Words { 0xFFFF, 0x9E53 } << -2500.5;
    QTest::newRow("B: positive mantissa") << Packed::FormatB << Words { 0xFE00, 0x04D2 } << 12.34;
    QTest::newRow("B: most negative mantissa")
        << Packed::FormatB << Words { 0x0080, 0x0000 } << -8388608.0;
    QTest::newRow("power factor: low word / 10^4")
        << Packed::PowerFactor << Words { 0x0000, 0x2648 } << 0.98;
    QTest::newRow("power factor: sign bits in the high word ignored")
        << Packed::PowerFactor << Words { 0xFFFF, 0x2648 } << 0.98;
    QTest::newRow("power factor: largest") << Packed::PowerFactor << Words { 0, 0xFFFF } << 6.5535;
}

void TestRegisterDecoding::packed()
{
    QFETCH(Packed, format);
    QFETCH(Words, words);
    QFETCH(double, expected);

    QCOMPARE(decodePacked(format, words.constData()), expected);
}

QTEST_GUILESS_MAIN(TestRegisterDecoding)
#include "tst_registerdecoding.moc"
