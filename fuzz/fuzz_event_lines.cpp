// libFuzzer target: the tightening reports that "listenEventsData" reads. Input: byte 0
// the plug-in's current program id, byte 1 the driver's chunk number, then the payload
// lines, one per '\n'. Checked: every record has all its keys, "angleUnit" "DEG", the
// program id and the chunk number; one publication for each line holding a complete
// report (a header line with 14 commas or more, another line with more than 14), and
// none for any other line.
#include "d_cmd_listen.h"
#include "fuzz_check.h"
#include "fuzz_plugin.h"

#include <algorithm>

namespace {

// The record's keys in its (sorted) order, and those whose values are numbers.
const QStringList c_keys{"angleUnit", "convertedTorque", "date", "direction", "duration", "eventCountNo", "jobId",
                         "mode", "profileName", "progId", "snugTorqueAngle", "status", "time", "torqueUnit"};
const QStringList c_intKeys{"convertedTorque", "duration", "eventCountNo", "progId"};
int g_progId = 0;
int g_number = 0;
int g_publications = 0;

void checkPublication(const QVariantMap& results)
{
    ++g_publications;
    const QVariantMap record = results.value("eventData").toMap();
    FUZZ_CHECK(results.size() == 1 && record.keys() == c_keys);
    for (auto it = record.cbegin(); it != record.cend(); ++it)
        FUZZ_CHECK(it.value().type() == (c_intKeys.contains(it.key()) ? QVariant::Int : QVariant::String));
    FUZZ_CHECK(record.value("angleUnit") == QVariant("DEG"));
    FUZZ_CHECK(record.value("progId") == QVariant(g_progId) && record.value("eventCountNo") == QVariant(g_number));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    // One listening command for the run, as the host keeps it between the tool's reports.
    static DCmdListen command({}, fuzzPlugin());
    static const bool executed = command.commandExecute()
        && QObject::connect(&command, &DAbstractCommand::sigResultsUpdated, &checkPublication);
    g_progId = data[0];
    g_number = int8_t(data[1]);
    g_publications = 0;
    fuzzPlugin()->setProperty("currentProgId", g_progId, false);
    command.receiveEventData(1, {{"number", g_number}});
    const QStringList lines = QString::fromUtf8(reinterpret_cast<const char*>(data + 2), int(size - 2)).split('\n');
    command.onEventReady(lines);
    const int complete = int(std::count_if(lines.cbegin(), lines.cend(), [](const QString& line) {
        return line.count(',') >= (line.contains("SET EVENT LOG") ? 14 : 15);
    }));
    FUZZ_CHECK(executed && g_publications == complete);
    fuzzEndOfInput();
    return 0;
}
