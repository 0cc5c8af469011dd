#include "registerdecoding.h"

#include <QTest>

#include <limits>

using Words = QList<quint16>;

namespace {

double decodeNumber(const QString &format, const Words &words)
{
    using namespace RegisterDecoding;
    const quint16 *w = words.constData();
    const QMap<QString, std::function<double()>> decoders {
        { "int32 lsw", [w] { return int32LswFirst(w); } },
        { "int32 msw", [w] { return int32MswFirst(w); } },
        { "int16", [w] { return int16(w[0]); } },
        { "float", [w] { return float32MswFirst(w); } },
        { "double", [w] { return float64MswFirst(w); } },
        { "packed A", [w] { return packedFormatA(w); } },
        { "packed B", [w] { return packedFormatB(w); } },
        { "power factor", [w] { return packedPowerFactor(w); } },
    };
    return decoders.value(format)();
}

} // namespace

class TestRegisterDecoding : public QObject
{
    Q_OBJECT

private slots:
    void numbers_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<Words>("words");
        QTest::addColumn<double>("expected");
        const auto row = [](const char *name, const char *format, const Words &words,
                             double expected) {
            QTest::newRow(name) << QString(format) << words << expected;
        };
        row("lsw: high word counts 65536", "int32 lsw", { 0xE240, 0x0001 }, 123456);
        row("lsw: low word above 0x7FFF", "int32 lsw", { 0x8000, 0x0000 }, 32768);
        row("lsw: negative", "int32 lsw", { 0xFB2E, 0xFFFF }, -1234);
        row("lsw: minimum", "int32 lsw", { 0x0000, 0x8000 }, std::numeric_limits<qint32>::min());
        row("msw: high word first", "int32 msw", { 0x0001, 0xE240 }, 123456);
        row("msw: negative", "int32 msw", { 0xFFFF, 0xFB2E }, -1234);
        row("int16: negative power factor", "int16", { 0xFC25 }, -987);
        row("int16: minimum", "int16", { 0x8000 }, -32768);
        row("float: 230.5", "float", { 0x4366, 0x8000 }, 230.5);
        row("float: low word matters", "float", { 0x3F80, 0x0001 }, double(1.0000001f));
        row("float: negative", "float", { 0xBF80, 0x0000 }, -1.0);
        row("double: 1000.5", "double", { 0x408F, 0x4400, 0, 0 }, 1000.5);
        row("double: last word matters", "double", { 0x3FF0, 0, 0, 1 }, 1.0000000000000002);
        row("A: 1234 x 10^-2", "packed A", { 0xFE00, 0x04D2 }, 12.34);
        row("A: positive exponent", "packed A", { 0x0300, 0x0007 }, 7000.0);
        row("A: mantissa above 2^23 positive", "packed A", { 0x00FF, 0xFFFF }, 16777215.0);
        row("A: smallest exponent", "packed A", { 0x8000, 0x0001 }, 1e-128);
        row("A: largest exponent", "packed A", { 0x7F00, 0x0001 }, 1e127);
        row("B: negative mantissa", "packed B", { 0xFFFF, 0x9E53 }, -2500.5);
        row("B: most negative mantissa", "packed B", { 0x0080, 0x0000 }, -8388608.0);
        row("B: positive mantissa", "packed B", { 0xFE00, 0x04D2 }, 12.34);
        row("pf: low word / 10^4", "power factor", { 0x0000, 0x2648 }, 0.98);
        row("pf: sign bits ignored", "power factor", { 0xFFFF, 0x2648 }, 0.98);
    }

    void numbers()
    {
        QFETCH(QString, format);
        QFETCH(Words, words);
        QFETCH(double, expected);
        QCOMPARE(decodeNumber(format, words), expected);
    }

    void texts_data()
    {
        QTest::addColumn<bool>("highByteFirst");
        QTest::addColumn<Words>("words");
        QTest::addColumn<int>("maxBytes");
        QTest::addColumn<QString>("expected");
        QTest::newRow("low byte first") << false << Words { 0x4241, 0x4443 } << 4 << "ABCD";
        QTest::newRow("zero bytes dropped")
            << false << Words { 0x3231, 0x0000, 0x3300, 0x0034 } << 8 << "1234";
        QTest::newRow("odd limit keeps the last low byte")
            << false << Words { 0x4241, 0x4443, 0x4645, 0x4847, 0x4A49, 0x4C4B, 0x4E4D } << 13
            << "ABCDEFGHIJKLM";
        QTest::newRow("limit above the registers") << false << Words { 0x4241 } << 13 << "AB";
        QTest::newRow("Latin-1") << false << Words { 0xFCE9, 0x00B5 } << 4
                                 << QString::fromUtf8("\xc3\xa9\xc3\xbc\xc2\xb5");
        QTest::newRow("zero limit") << false << Words { 0x4241 } << 0 << "";
        QTest::newRow("negative limit") << false << Words { 0x4241 } << -1 << "";
        QTest::newRow("high byte first") << true << Words { 0x4142, 0x4344 } << 0 << "ABCD";
        QTest::newRow("high first, padding dropped")
            << true << Words { 0x574D, 0x334D, 0x3600, 0x0031 } << 0 << "WM3M61";
        QTest::newRow("high first, Latin-1")
            << true << Words { 0xE9FC } << 0 << QString::fromUtf8("\xc3\xa9\xc3\xbc");
    }

    void texts()
    {
        QFETCH(bool, highByteFirst);
        QFETCH(Words, words);
        QFETCH(int, maxBytes);
        QFETCH(QString, expected);
        const int count = int(words.size());
        QCOMPARE(highByteFirst
                ? RegisterDecoding::textHighByteFirst(words.constData(), count)
                : RegisterDecoding::serialFromRegisters(words.constData(), count, maxBytes),
            expected);
    }

    void nibbleVersion()
    {
        QCOMPARE(RegisterDecoding::nibbleVersion(0x1203), QStringLiteral("v1.2.3"));
        QCOMPARE(RegisterDecoding::nibbleVersion(0x2110), QStringLiteral("v2.1.16"));
        QCOMPARE(RegisterDecoding::nibbleVersion(0xFFFF), QStringLiteral("v15.15.255"));
    }
};

QTEST_GUILESS_MAIN(TestRegisterDecoding)
#include "tst_registerdecoding.moc"
