#ifndef D_FRAME_TRACER_H
#define D_FRAME_TRACER_H

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>

// Prints every HCP frame that crosses the serial driver, both ways, on stderr.
class DFrameTracer : public QObject
{
    Q_OBJECT
public:
    // `driver` is the serial driver's plug-in object (signals sigBytesWritten / sigBytesRead).
    explicit DFrameTracer(QObject* driver, QObject* parent = nullptr);

    // One trace line: time, direction, hex, decoded flags, sequence, length, payload text.
    static QString describe(double seconds, const QString& direction, const QByteArray& frame);

private slots:
    void onBytesWritten(const QByteArray& bytes);
    void onBytesRead(const QByteArray& bytes);

private:
    void trace(QByteArray& buffer, const QByteArray& bytes, const QString& direction);

    QElapsedTimer m_clock;
    QByteArray m_toTool;
    QByteArray m_fromTool;
};

#endif // D_FRAME_TRACER_H
