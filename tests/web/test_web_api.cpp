// The SPC figures where the journal gives limits (the browser's test covers those without), and the
// web API's answers to bad requests, over a real hytorcd and its simulator.
#include "d_hytorc_process.h"
#include "d_spc.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpServer>
#include <QTemporaryDir>

#include <cmath>
#include <optional>

using DLimit = std::optional<double>;
Q_DECLARE_METATYPE(DLimit)

class TestWebApi : public QObject
{
    Q_OBJECT
private slots:
    void spc_data();
    void spc();
    void badRequests_data();
    void badRequests();
    void cleanupTestCase() { delete m_daemon; }

private:
    QByteArray get(const QString& path, int* status);

    QTemporaryDir m_dir;
    DTimedHytorc* m_daemon = nullptr;
    int m_port = 0;
    QNetworkAccessManager m_network;
};

void TestWebApi::spc_data()
{
    QTest::addColumn<QList<double>>("torques");  // N·m, each row with the limits below
    QTest::addColumn<DLimit>("lsl");
    QTest::addColumn<DLimit>("usl");
    QTest::addColumn<DLimit>("cp");
    QTest::addColumn<DLimit>("cpk");
    // Cp = (USL - LSL) / 6s, Cpk = min(USL - mean, mean - LSL) / 3s; mean 50, s 2 here.
    QTest::newRow("both limits") << QList<double>{48, 50, 52} << DLimit(44) << DLimit(58) << DLimit(14.0 / 12) << DLimit(1.0);
    QTest::newRow("upper only") << QList<double>{48, 50, 52} << DLimit() << DLimit(58) << DLimit() << DLimit(8.0 / 6);
    QTest::newRow("lower only") << QList<double>{48, 50, 52} << DLimit(44) << DLimit() << DLimit() << DLimit(1.0);
    QTest::newRow("no spread") << QList<double>{50, 50, 50} << DLimit(44) << DLimit(58) << DLimit() << DLimit();
    QTest::newRow("one result") << QList<double>{50} << DLimit(44) << DLimit(58) << DLimit() << DLimit();
}

void TestWebApi::spc()
{
    QFETCH(QList<double>, torques);
    QFETCH(DLimit, lsl);
    QFETCH(DLimit, usl);
    QFETCH(DLimit, cp);
    QFETCH(DLimit, cpk);
    DSpc judged(3);
    qint64 id = 0;
    for (const double torque : torques)
        judged.add({++id, torque * 100, "N.m", "PASSED", lsl ? QVariant(*lsl) : QVariant(), usl ? QVariant(*usl) : QVariant()});
    const DSpc::DFigures figures = judged.figures();
    QCOMPARE(figures.lsl, lsl);
    QCOMPARE(figures.usl, usl);
    QCOMPARE(figures.cp.has_value(), cp.has_value());
    QCOMPARE(figures.cpk.has_value(), cpk.has_value());
    if (cp)
        QVERIFY(std::abs(*figures.cp - *cp) < 1e-9);
    if (cpk)
        QVERIFY(std::abs(*figures.cpk - *cpk) < 1e-9);
    const QByteArray json = judged.json(false);
    QVERIFY2(!json.contains("inf") && !json.contains("nan"), json);
}

QByteArray TestWebApi::get(const QString& path, int* status)
{
    QNetworkReply* reply = m_network.get(QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path))));
    (void)QTest::qWaitFor([reply] { return reply->isFinished(); }, 10000);
    *status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    return body;
}

void TestWebApi::badRequests_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("unknown path") << "/api/nothing" << 404 << QByteArray("no such page: /api/nothing");
    QTest::newRow("page not there") << "/missing.html" << 404 << QByteArray("no such page");
    QTest::newRow("spc without program") << "/api/spc" << 400 << QByteArray("program is required");
    QTest::newRow("program not a number") << "/api/spc?program=x" << 400 << QByteArray("program takes a program id");
    QTest::newRow("bad time") << "/api/results?since=yesterday" << 400 << QByteArray("since takes a time");
    QTest::newRow("negative id") << "/api/results?after=-3" << 400 << QByteArray("after takes a tightening id");
    QTest::newRow("page too long") << "/api/results?limit=5000" << 400 << QByteArray("limit takes a number of rows (1 to 1000)");
    QTest::newRow("unknown parameter") << "/api/results?progam=1" << 400 << QByteArray("unknown parameter \\\"progam\\\"");
    QTest::newRow("bad order") << "/api/results?order=up" << 400 << QByteArray("order takes oldest or newest");
    QTest::newRow("limit on a download") << "/api/results.csv?limit=3" << 400 << QByteArray("unknown parameter");
}

void TestWebApi::badRequests()
{
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, error);
    if (!m_daemon) {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        m_port = probe.serverPort();
        probe.close();
        m_daemon = new DTimedHytorc({"--journal", m_dir.filePath("r.db"), "--op-port", "0", "--http-port",
                                     QString::number(m_port)}, QProcessEnvironment::systemEnvironment(), "hytorcd");
        QTRY_VERIFY_WITH_TIMEOUT(DTimedHytorc::timeOf(m_daemon->err, "web: http://127.0.0.1") >= 0, 20000);
    }
    int answered = 0;
    const QByteArray body = get(path, &answered);
    QCOMPARE(answered, status);
    QVERIFY2(body.startsWith("{\"error\":\"") && body.endsWith("\"}\n") && body.count('\n') == 1, body);
    QVERIFY2(body.contains(error), body);
}

QTEST_GUILESS_MAIN(TestWebApi)
#include "test_web_api.moc"
