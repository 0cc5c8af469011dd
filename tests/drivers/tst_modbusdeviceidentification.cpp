#include "logcapture.h"
#include "modbusdeviceidentification.h"

#include <QTest>

using Objects = QMap<quint8, QString>;

namespace {

// A response frame as a device sends it: MBAP header with the request's transaction id, then
// function 0x2B, MEI 0x0E, read code 1, conformity 1, More Follows, Next Object Id, the count
// and the objects. The length byte counts what follows it.
QByteArray frame(quint8 moreFollows, quint8 next, const QList<QPair<quint8, QByteArray>> &objects)
{
    QByteArray pdu = QByteArray::fromHex("2B0E0101");
    pdu.append(char(moreFollows)).append(char(next)).append(char(objects.size()));
    for (const auto &[id, value] : objects)
        pdu.append(char(id)).append(char(value.size())).append(value);
    return QByteArray::fromHex("ABCD0000") + char(0) + char(pdu.size() + 1) + char(0xFF) + pdu;
}

const QList<QPair<quint8, QByteArray>> siemens { { 0, "SIEMENS" }, { 1, "PAC3220" },
    { 2, "V3.2.1" } };

} // namespace

class TestModbusDeviceIdentification : public QObject
{
    Q_OBJECT

private slots:
    void request()
    {
        QCOMPARE(
            ModbusDeviceIdentification::request(), QByteArray::fromHex("ABCD00000005FF2B0E0100"));
    }

    void parse_data()
    {
        QTest::addColumn<QByteArray>("response");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QStringList>("warnings");
        QTest::addColumn<Objects>("objects");

        const QString length = "got an unexpected response length";
        const Objects all { { 0, "SIEMENS" }, { 1, "PAC3220" }, { 2, "V3.2.1" } };
        QTest::newRow("complete") << frame(0, 0, siemens) << true << QStringList() << all;
        QTest::newRow("6 bytes") << frame(0, 0, siemens).left(6) << false << QStringList { length }
                                 << Objects();
        QByteArray sevenBytes = frame(0, 0, siemens).left(7);
        sevenBytes[5] = 7;
        QTest::newRow("7 bytes, length 7")
            << sevenBytes << false << QStringList { length } << Objects();
        QByteArray swapped = frame(0, 0, siemens);
        std::swap(swapped[0], swapped[1]);
        QTest::newRow("transaction id swapped")
            << swapped << false
            << QStringList { "response frame transaction id did not match request transaction id" }
            << Objects();
        QTest::newRow("More Follows 0xFF")
            << frame(0xFF, 0, siemens) << false
            << QStringList { "can not yet handle \"More Follows\"" } << Objects();
        QTest::newRow("More Follows 0x01 is taken")
            << frame(0x01, 0, siemens) << true << QStringList() << all;
        QTest::newRow("exception response") << QByteArray::fromHex("ABCD00000003FFAB01") << false
                                            << QStringList { length } << Objects();
        QTest::newRow("zero objects") << frame(0, 0, {}) << true << QStringList() << Objects();
        QTest::newRow("objects 0, 2, 1")
            << frame(0, 0, { siemens[0], siemens[2], siemens[1] }) << true
            << QStringList { "object id 2 in list does not match next object id: 1",
                   "object id 1 in list does not match next object id: 2" }
            << all;
        QTest::newRow("next object id 3, three objects")
            << frame(0, 3, { { 3, "a" }, { 4, "b" }, { 5, "c" } }) + QByteArray::fromHex("060178")
            << true << QStringList() << Objects { { 3, "a" }, { 4, "b" }, { 5, "c" } };
        QTest::newRow("VendorName twice keeps the second")
            << frame(0, 0, { { 0, "first" }, { 0, "second" } }) << true
            << QStringList { "object id 0 in list does not match next object id: 1" }
            << Objects { { 0, "second" } };
        // Ids and lengths are the device's word; bytes that did not arrive read as zero, never
        // past the end: a cut frame leaves a truncated first object, then empty ones with id 0.
        QTest::newRow("frame cut inside the first object")
            << frame(0, 0, siemens).left(20) << true
            << QStringList { "object id 0 in list does not match next object id: 1",
                   "object id 0 in list does not match next object id: 2" }
            << Objects { { 0, QString() } };
    }

    void parse()
    {
        QFETCH(QByteArray, response);
        QFETCH(bool, accepted);
        QFETCH(QStringList, warnings);
        QFETCH(Objects, objects);

        LogCapture log;
        ModbusDeviceIdentification identification(QString {});
        QCOMPARE(identification.parseResponse(response), accepted);
        QCOMPARE(identification.objects(), objects);
        QStringList seen;
        for (const LogCapture::Line &line : log.lines()) {
            if (line.category == "modbus.device.info" && line.type == QtWarningMsg)
                seen.append(line.text.section(' ', 1));
        }
        QCOMPARE(seen, warnings);
        QCOMPARE(identification.state(), ModbusDeviceIdentification::Pending);
    }
};

QTEST_GUILESS_MAIN(TestModbusDeviceIdentification)
#include "tst_modbusdeviceidentification.moc"
