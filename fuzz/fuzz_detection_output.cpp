// libFuzzer target: bluetoothctl's output as "startDetection" reads it, in chunks cut at
// NUL bytes (the scan's output arrives so). Checked after every chunk: a publication only
// when the chunk names a tool and adds a device, and then the whole list: each "sn" 17
// upper-case hex digits and colons, sorted by "sn" without duplicates, every earlier
// record kept as it was, every name non-empty and trimmed.
#include "d_cmd_start_detection.h"
#include "fuzz_check.h"
#include "fuzz_plugin.h"

class FuzzDetectionOutput
{
public:
    static void run(const QByteArray& output)
    {
        // One command for the run; each input is a new run, which starts with no device.
        static DCmdStartDetection command({}, fuzzPlugin());
        static int publications = 0;
        static const bool connected = QObject::connect(&command, &DAbstractCommand::sigResultsUpdated,
                                                       [](const QVariantMap&) { ++publications; });
        FUZZ_CHECK(connected);
        command.foundDevices.clear();
        QVariantList devices;
        for (const QByteArray& chunk : output.split('\0')) {
            const QString text = QString::fromUtf8(chunk);
            const int before = publications;
            command.parseDetectionOutput(text);
            if (publications == before)
                continue;
            const QVariantList now = command.commandResults().value("lastResults").toList();
            FUZZ_CHECK(publications == before + 1 && now.size() > devices.size()
                       && text.contains("HYTORC", Qt::CaseInsensitive));
            for (int i = 0; i < now.size(); ++i)
                checkDevice(now.at(i).toMap(), i == 0 ? QString() : now.at(i - 1).toMap().value("sn").toString());
            for (const QVariant& device : qAsConst(devices))
                FUZZ_CHECK(now.contains(device));
            devices = now;
        }
    }

private:
    static void checkDevice(const QVariantMap& device, const QString& previousSn)
    {
        const QString sn = device.value("sn").toString();
        const QString name = device.value("mac").toString();
        FUZZ_CHECK(device.size() == 2 && sn.size() == 17 && sn > previousSn);
        for (const QChar c : sn)
            FUZZ_CHECK(c == ':' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'));
        FUZZ_CHECK(!name.isEmpty() && name == name.trimmed());
    }
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzDetectionOutput::run(QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)));
    fuzzEndOfInput();
    return 0;
}
