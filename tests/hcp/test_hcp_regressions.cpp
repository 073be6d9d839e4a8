// Replays every input kept from the fuzz target fuzz_hcp (tests/hcp/regressions/) and
// its seeds (fuzz/seeds/) through the same driver; a broken invariant aborts.
#include "hcp_fuzz_driver.h"

#include <QDir>
#include <QFile>
#include <QtTest>

class TestHcpRegressions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { hcpfuzz::init(false); }
    void replay_data();
    void replay();
};

void TestHcpRegressions::replay_data()
{
    QTest::addColumn<QString>("path");
    int count = 0;
    for (const QString& dir : {QStringLiteral(HCP_REGRESSION_DIR), QStringLiteral(HCP_SEED_DIR)}) {
        const QFileInfoList files = QDir(dir).entryInfoList(QDir::Files, QDir::Name);
        for (const QFileInfo& file : files) {
            if (file.fileName().startsWith(QLatin1Char('.')) || file.suffix() == QLatin1String("md"))
                continue;
            QTest::newRow(qPrintable(QDir(dir).dirName() + QLatin1Char('/') + file.fileName()))
                << file.absoluteFilePath();
            ++count;
        }
    }
    QVERIFY2(count > 0, "no inputs to replay");
}

void TestHcpRegressions::replay()
{
    QFETCH(QString, path);
    QFile file(path);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
    const QByteArray input = file.readAll();
    hcpfuzz::run(reinterpret_cast<const uint8_t*>(input.constData()), size_t(input.size()));
}

QTEST_GUILESS_MAIN(TestHcpRegressions)
#include "test_hcp_regressions.moc"
