// The collector's completeness ledger on its own: which holes in a station's ids are due for a
// replay request and when, what the database's answer removes, and when an asked range closes.
#include "d_completeness_ledger.h"

#include <QtTest>

namespace {

constexpr qint64 c_graceMs = 2000;

QString text(const QList<DCompletenessLedger::DHole>& holes)
{
    QStringList parts;
    for (const DCompletenessLedger::DHole& hole : holes)
        parts << QStringLiteral("%1-%2").arg(hole.first).arg(hole.last);
    return parts.join(QLatin1Char(','));
}

} // namespace

class TestCompleteness : public QObject
{
    Q_OBJECT

private slots:
    void due_data()
    {
        QTest::addColumn<QList<qint64>>("received");
        QTest::addColumn<QList<qint64>>("held");  // first, last pairs the database holds
        QTest::addColumn<QString>("due");
        QTest::newRow("dense") << QList<qint64>{1, 2, 3, 4} << QList<qint64>{} << "";
        QTest::newRow("out of order, dense") << QList<qint64>{3, 1, 4, 2} << QList<qint64>{} << "";
        QTest::newRow("one missing") << QList<qint64>{1, 2, 4} << QList<qint64>{} << "3-3";
        QTest::newRow("before the first seen") << QList<qint64>{5, 6} << QList<qint64>{} << "1-4";
        QTest::newRow("two holes") << QList<qint64>{1, 3, 7} << QList<qint64>{} << "2-2,4-6";
        QTest::newRow("the database has them") << QList<qint64>{1, 9} << QList<qint64>{2, 8} << "";
        QTest::newRow("the database has some") << QList<qint64>{1, 9} << QList<qint64>{3, 4, 6, 6} << "2-2,5-5,7-8";
    }

    // Nothing is due within the grace time; then exactly the ids neither received nor held.
    void due()
    {
        QFETCH(QList<qint64>, received);
        QFETCH(QList<qint64>, held);
        QFETCH(QString, due);
        DCompletenessLedger ledger(c_graceMs);
        for (const qint64 id : received)
            ledger.received("T1", "hytorc/T1", id);
        QVERIFY(ledger.due(1000).isEmpty());
        for (int i = 0; i + 1 < held.size(); i += 2)
            ledger.held("T1", held.at(i), held.at(i + 1));
        QVERIFY(ledger.due(1000 + c_graceMs - 1).isEmpty());
        QCOMPARE(text(ledger.due(1000 + c_graceMs)), due);
    }

    // Asked once, again only after c_reaskMs; closed once its ids came, and only once.
    void askedAndClosed()
    {
        DCompletenessLedger ledger(c_graceMs);
        for (const qint64 id : {1, 2, 6})
            ledger.received("T1", "hytorc/T1", id);
        ledger.due(0);
        const QList<DCompletenessLedger::DHole> hole = ledger.due(c_graceMs);
        QCOMPARE(text(hole), QString("3-5"));
        QCOMPARE(hole.first().prefix, QByteArray("hytorc/T1"));
        ledger.asked(hole.first(), c_graceMs);
        ledger.received("T1", "hytorc/T1", 3);
        QVERIFY(ledger.due(c_graceMs + DCompletenessLedger::c_reaskMs - 1).isEmpty());
        QCOMPARE(text(ledger.due(c_graceMs + DCompletenessLedger::c_reaskMs)), QString("4-5"));
        QVERIFY(ledger.closed(c_graceMs + 1).isEmpty());
        ledger.received("T1", "hytorc/T1", 5);
        ledger.held("T1", 4, 4);
        QCOMPARE(text(ledger.closed(c_graceMs + 2)), QString("3-5"));
        QVERIFY(ledger.closed(c_graceMs + 3).isEmpty());
        QCOMPARE(ledger.stationOf("hytorc/T1"), QString("T1"));
    }
};

QTEST_GUILESS_MAIN(TestCompleteness)
#include "test_completeness.moc"
