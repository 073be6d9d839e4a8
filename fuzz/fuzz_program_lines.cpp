// libFuzzer target: the job-profile lines that "listProgram" reads, one per '\n' of the
// input. Checked: a record for every line of four fields or more and for no other, its
// texts trimmed and without commas, the optional keys only in order, the ids 1..n, and
// the plug-in's list and count the same as the result.
#include "d_cmd_list_programs.h"
#include "fuzz_check.h"
#include "fuzz_plugin.h"

#include <algorithm>

namespace {

const QStringList c_keys{"name", "type", "unit", "torque", "angle", "release", "fastener"};

void checkRecord(const QVariantMap& record, int index)
{
    const QVariant id = record.value("progId");
    FUZZ_CHECK(id.type() == QVariant::Int && id.toInt() == index + 1);
    // Each key is there only if all those before it are: fields are taken in order.
    int present = 0;
    while (present < c_keys.size() && record.contains(c_keys.at(present)))
        ++present;
    FUZZ_CHECK(present >= 4 && record.size() == present + 1);
    for (int i = 0; i < present; ++i) {
        const QVariant value = record.value(c_keys.at(i));
        FUZZ_CHECK(value.type() == QVariant::String);
        FUZZ_CHECK(value.toString() == value.toString().trimmed() && !value.toString().contains(','));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // One command for the run: each reply starts the list afresh, as a new execution does.
    static DCmdListPrograms command({}, fuzzPlugin());
    static const bool executed = command.commandExecute();
    const QStringList lines = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)).split('\n');
    command.onDataReady(lines);
    const QVariantList programs = command.commandResults().value("programList").toList();
    const int complete = int(std::count_if(lines.cbegin(), lines.cend(), [](const QString& line) {
        return line.count(',') >= 3;
    }));
    FUZZ_CHECK(executed && programs.size() == complete);
    for (int i = 0; i < programs.size(); ++i)
        checkRecord(programs.at(i).toMap(), i);
    FUZZ_CHECK(fuzzPlugin()->getProperty("programList", {}).toList() == programs);
    FUZZ_CHECK(fuzzPlugin()->getProperty("programListCount", {}) == QVariant(int(programs.size())));
    FUZZ_CHECK(programs.isEmpty() || fuzzPlugin()->getProperty("currentProgId", {}) == QVariant(1));
    fuzzEndOfInput();
    return 0;
}
