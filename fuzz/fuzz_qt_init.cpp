// Every target runs Qt objects: one application for the whole run, and no log output
// (the engine's critical lines would drown libFuzzer's own).
#include "fuzz_check.h"

#include <QCoreApplication>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}
