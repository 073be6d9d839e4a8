// The retry road with the real timers: every state times out once, at its
// own interval, and the header goes out again; after the fifth resend the next expiry
// is "Tool communication timeout" and the engine stays silent. About 28 s.
#include "hcp_test_support.h"

#include <QElapsedTimer>

using namespace hcptest;

class TestHcpRetryRoad : public QObject
{
    Q_OBJECT

private slots:
    void retryRoad();

private:
    // Waits for the next write; checks it came after about `interval` ms.
    bool nextHeaderAfter(Engine& e, QElapsedTimer& clock, int interval);
};

bool TestHcpRetryRoad::nextHeaderAfter(Engine& e, QElapsedTimer& clock, int interval)
{
    clock.restart();
    if (!e.writes.wait(interval + 2000) && e.writes.isEmpty()) {
        qWarning("no header within %d ms", interval + 2000);
        return false;
    }
    const qint64 elapsed = clock.elapsed();
    // Coarse timers may fire up to 5 % early.
    if (elapsed < interval * 95 / 100) {
        qWarning("header after %lld ms, expected %d", elapsed, interval);
        return false;
    }
    return e.takeWrites() == QList<QByteArray>{header()};
}

void TestHcpRetryRoad::retryRoad()
{
    const QByteArray text = "GET ADMIN TOOL_INFO\r\n";
    Engine e;
    QElapsedTimer clock;
    clock.start();
    e.comm->sendRequest(QString::fromLatin1(text));
    QVERIFY(e.writes.wait(1000));
    QVERIFY(clock.elapsed() >= 190);
    QCOMPARE(e.takeWrites(), QList<QByteArray>{header()});

    QVERIFY(nextHeaderAfter(e, clock, 3000)); // state 1, retry 1
    e.feed(ack());
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(text, 1)});
    QVERIFY(nextHeaderAfter(e, clock, 4000)); // state 2, retry 2
    e.feed(ack());
    QCOMPARE(e.takeWrites(), QList<QByteArray>{request(text, 1)});
    e.feed(ack());
    e.feed(reply("part\r\n", false));
    QCOMPARE(e.takeWrites(), QList<QByteArray>{ack()});
    QVERIFY(nextHeaderAfter(e, clock, 8000)); // state 3, retry 3
    QVERIFY(nextHeaderAfter(e, clock, 3000)); // retry 4
    QVERIFY(nextHeaderAfter(e, clock, 3000)); // retry 5

    clock.restart();
    QVERIFY(e.errors.wait(5000));
    QVERIFY(clock.elapsed() >= 2850);
    QCOMPARE(e.lastError(), QStringLiteral("Tool communication timeout"));
    QCOMPARE(e.writes.count(), 0);

    // Nothing more: the timer is not started again.
    QTest::qWait(3300);
    QCOMPARE(e.writes.count(), 0);
    QCOMPARE(e.errors.count(), 1);
    QCOMPARE(e.data.count(), 0);
}

QTEST_GUILESS_MAIN(TestHcpRetryRoad)
#include "test_hcp_retry_road.moc"
