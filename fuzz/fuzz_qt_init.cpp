// Every target runs Qt objects: one application for the whole run, and no log output
// (the engine's critical lines would drown libFuzzer's own).
#include "fuzz_check.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

// Qt is built without frame pointers: recording where each block was allocated reads
// garbage past the first Qt frame, and the store of those stacks then grows without end
// and slows every allocation. Short stacks (ASAN_OPTIONS=malloc_context_size=30 to see
// more when replaying a failure), and a small quarantine of freed blocks: the targets
// allocate 64 KiB chunks, and the default quarantine makes every run four times slower.
extern "C" const char* __asan_default_options()
{
    return "malloc_context_size=2:quarantine_size_mb=16";
}

// Undefined behaviour fails the input like a crash, so that libFuzzer keeps it.
extern "C" const char* __ubsan_default_options() { return "halt_on_error=1:print_stacktrace=1"; }

void fuzzEndOfInput()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // A single-shot timer (the engine's delayed header) lives under the event dispatcher
    // until it fires, which it never does without an event loop: each input left one, and
    // the dispatcher's growing timer list slowed every later input.
    const QObjectList pending = QAbstractEventDispatcher::instance()->children();
    for (QObject* timer : pending)
        delete (qstrcmp(timer->metaObject()->className(), "QSingleShotTimer") == 0 ? timer : nullptr);
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}
