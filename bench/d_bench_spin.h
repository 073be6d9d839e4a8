#ifndef D_BENCH_SPIN_H
#define D_BENCH_SPIN_H

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <functional>

// Handles events as they come until `done`, looking at least every millisecond (without spinning
// a core that the broker and the client's thread need); false after `ms`.
inline bool spinUntil(const std::function<bool()>& done, int ms)
{
    QElapsedTimer clock;
    clock.start();
    QTimer tick;
    tick.start(1);
    while (!done() && clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return done();
}

#endif // D_BENCH_SPIN_H
