// The values in the result layouts at the byte numbers of Open Protocol R2.8.0's tables, from a
// journal row with the station's keys (identifiers, limits, statuses, batch); without them, and
// every layout's ids and widths, are checked over the wire (test_op_server, layouts_client/).
#include "d_op_result_layouts.h"

#include <QtTest>

namespace {

const DOpSettings c_settings{1, 1, QStringLiteral("T1"), {QStringLiteral("PASSED")}};
const QDateTime c_when(QDate(2026, 3, 4), QTime(5, 6, 7));
const QVariantMap c_program{{"progId", 3}, {"name", "P3"}, {"torque", "800"}, {"unit", "NM"}, {"angle", "0"}};

// A row as the journal holds it with the station's keys.
const QVariantMap c_row{{"id", 42}, {"station", "T1"}, {"toolSerial", "HYT24A0137"}, {"date", "2026-03-04"}, {"time", "05:06:07"},
                        {"status", "PASSED"}, {"convertedTorque", 12000}, {"torqueUnit", "FTLB"}, {"progId", 3},
                        {"identifier", "VIN1"}, {"identifier2", "P2"}, {"identifier3", "P3"}, {"identifier4", "P4"},
                        {"batchSize", 3}, {"batchCounter", 2}, {"batchStatus", 0}, {"torqueMin", 100.5}, {"torqueMax", 200},
                        {"angleMin", 30}, {"angleMax", 90}, {"torqueStatus", "high"}, {"angleStatus", "ok"}};

QByteArray result(bool old, int revision)
{
    const DOpResultLayouts layouts(c_settings, c_row, c_program, c_when);
    return old ? layouts.oldResult(revision) : layouts.lastResult(revision);
}

QString spaces(int count) { return QString(count, QLatin1Char(' ')); }

} // namespace

class TestOpLayouts : public QObject
{
    Q_OBJECT

private slots:
    void layout_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QStringList>("fields");  // "byte:text", bytes numbered as the tables do

        QTest::newRow("0061 rev 1, traced; 120 ft.lb truncated") << result(false, 1)
            << QStringList{"58:04VIN1 ", "85:05  06003070003080002", "106:091102111", "115:1201005013020000140800001501626916000301700090",
                           "168:19     ", "217:220230000000042"};
        QTest::newRow("0061 rev 7") << result(false, 7)
            << QStringList{"85:05    06003", "96:07  08     090003100002111120132141", "158:21010050220200002308000024016269",
                           "302:410000000042", "328:44HYT24A0137    45", "386:47P3 ", "413:4814901", "420:50P2 ", "474:52P4 ",
                           "527:56" + spaces(7) + "57" + spaces(7)};
        QTest::newRow("0065 rev 7") << result(true, 7)
            << QStringList{"60:03    04003", "82:070003080002091100112121", "133:19016269", "190:27HYT24A0137    28",
                           "227:2913001", "234:31P2 ", "341:37" + spaces(10) + "38T1 "};
    }

    void layout()
    {
        QFETCH(QByteArray, data);
        QFETCH(QStringList, fields);
        for (const QString& field : fields) {
            const int byte = field.section(':', 0, 0).toInt();
            const QByteArray text = field.section(':', 1).toLatin1();
            QCOMPARE(data.mid(byte - 21, text.size()), text);
        }
    }
};

QTEST_GUILESS_MAIN(TestOpLayouts)
#include "test_op_layouts.moc"
