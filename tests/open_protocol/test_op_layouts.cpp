// The values in the layouts hytorcd sends, at the byte numbers of Open Protocol R2.8.0's tables,
// from journal rows with the station's keys (identifiers, limits, statuses, batch) and without
// them; every layout's ids and widths are read over the wire by layouts_client/.
#include "d_op_program_layouts.h"
#include "d_op_result_layouts.h"

#include <QtTest>

namespace {

const DOpSettings c_settings{1, 1, QStringLiteral("T1"), {QStringLiteral("PASSED")}};
const QDateTime c_when(QDate(2026, 3, 4), QTime(5, 6, 7));
const QVariantMap c_program{{"progId", 3}, {"name", "P3"}, {"torque", "800"}, {"unit", "NM"}, {"angle", "0"}};

// A row as the journal holds it; `traced` adds the station's keys.
QVariantMap row(bool traced)
{
    QVariantMap row{{"id", 42}, {"station", "T1"}, {"toolSerial", "HYT24A0137"}, {"date", "2026-03-04"}, {"time", "05:06:07"},
                    {"status", "PASSED"}, {"convertedTorque", 12000}, {"torqueUnit", "FTLB"}, {"progId", 3}};
    if (traced) {
        row.insert({{"identifier", "VIN1"}, {"identifier2", "P2"}, {"identifier3", "P3"}, {"identifier4", "P4"},
                    {"batchSize", 3}, {"batchCounter", 2}, {"batchStatus", 0}, {"torqueMin", 100.5}, {"torqueMax", 200},
                    {"angleMin", 30}, {"angleMax", 90}, {"torqueStatus", "high"}, {"angleStatus", "ok"}});
    }
    return row;
}

QByteArray result(bool traced, bool old, int revision)
{
    const DOpResultLayouts layouts(c_settings, row(traced), c_program, c_when);
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
        QTest::addColumn<int>("length");        // the message's, header included
        QTest::addColumn<QStringList>("fields");  // "byte:text", bytes numbered as the tables do

        QTest::newRow("0061 rev 1, traced; 120 ft.lb truncated") << result(true, false, 1) << 231
            << QStringList{"58:04VIN1 ", "85:05  06003070003080002", "106:091102111", "115:1201005013020000140800001501626916000301700090",
                           "168:19     ", "217:220230000000042"};
        QTest::newRow("0061 rev 1, untraced: spaces, batch not used") << result(false, false, 1) << 231
            << QStringList{"58:04" + spaces(25), "94:07    08    09110 11 12      13      ", "147:16     17     ", "217:222"};
        QTest::newRow("0061 rev 7") << result(true, false, 7) << 544
            << QStringList{"85:05    06003", "96:07  08     090003100002111120132141", "158:21010050220200002308000024016269",
                           "302:410000000042", "328:44HYT24A0137    45", "386:47P3 ", "413:4814901", "420:50P2 ", "474:52P4 ",
                           "527:56" + spaces(7) + "57" + spaces(7)};
        QTest::newRow("0065 rev 1, traced") << result(true, true, 1) << 118
            << QStringList{"21:010000000042", "33:02VIN1 ", "60:03003040002051062071080162690", "116:110"};
        QTest::newRow("0065 rev 7") << result(true, true, 7) << 379
            << QStringList{"60:03    04003", "82:070003080002091100112121", "133:19016269", "190:27HYT24A0137    28",
                           "227:2913001", "234:31P2 ", "341:37" + spaces(10) + "38T1 "};
        DStationPart::DProgramSettings limits;
        limits.torqueMin = 700.999;
        limits.angleMax = 45;
        limits.batchSize = 4;
        QTest::newRow("0013, limits truncated, unknown spaces") << DOpProgramLayouts::programData(c_program, limits) << 104
            << QStringList{"21:0100302P3", "53:0310404050700990", "76:07080000", "84:08     0900045"};
        QTest::newRow("0015 rev 2") << DOpProgramLayouts::programSelected(2, 3, c_when, c_program, limits) << 141
            << QStringList{"53:032026-03-04:05:06:0704105040607009907      08080000", "105:09     1000045", "126:12      13      "};
    }

    void layout()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, length);
        QFETCH(QStringList, fields);
        QCOMPARE(data.size() + 20, length);
        for (const QString& field : fields) {
            const int byte = field.section(':', 0, 0).toInt();
            const QByteArray text = field.section(':', 1).toLatin1();
            QCOMPARE(data.mid(byte - 21, text.size()), text);
        }
    }
};

QTEST_GUILESS_MAIN(TestOpLayouts)
#include "test_op_layouts.moc"
