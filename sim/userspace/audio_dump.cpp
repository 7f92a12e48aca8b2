#include "sim/userspace/audio_dump.h"

#include <ctype.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/root.h"
#include "sim/base/text.h"
#include "sim/userspace/log.h"
#include "sim/userspace/properties.h"
#include "sim/userspace/services.h"

namespace sim {
namespace {

constexpr char kService[] = "audiodumpinfo";
constexpr char kTypeProperty[] = "kelvo.audio.dumpinfo.type";
constexpr char kDirectory[] = "/data/persist_log/TMP/audio_dumpsys/";
constexpr size_t kMaxTypeInName = 32;

// The dump of each audio service while nothing plays.
constexpr struct {
    const char* service;
    const char* text;
} kDumps[] = {
    {"media.audio_flinger",
     "Libraries NOT loaded:\n\nHardware status: 0\nStandby Time mSec: 3000\n"
     "Output thread 0xf0a03580, name AudioOut_D, tid 1021, type 0 (MIXER):\n"
     "  Standby: yes\n  Sample rate: 48000 Hz\n  Channel count: 2\n  0 Tracks\n"},
    {"media.audio_policy",
     "AudioPolicyManager: primary output\n Primary Output: 13\n Phone state: AUDIO_MODE_NORMAL\n"
     " Available output devices: 1\n  1. Type: AUDIO_DEVICE_OUT_SPEAKER\n"},
    {"audio",
     "MediaFocusControl dump:\n\nAudio Focus stack entries (last is top of stack):\n\n"
     "Stream volumes (device: index)\n- STREAM_MUSIC:\n   Muted: false\n   Current: 2 (speaker): "
     "5\n"},
};

// "YYYY-MM-DD_HH-MM-SS.mmm"
std::string stamp() {
    const int64_t millis = Clock::get().wallNanos() / 1000000;
    char fraction[8];
    snprintf(fraction, sizeof(fraction), ".%03d", static_cast<int>(millis % 1000));
    return localTime("%Y-%m-%d_%H-%M-%S", millis / 1000) + fraction;
}

// Makes a new file STAMP-N-TYPE.txt. N counts the files of one millisecond, from all processes.
Fd create(const Root& root, const std::string& type, std::string& path) {
    const std::string start = kDirectory + stamp() + "-";
    std::string plain = type.substr(0, kMaxTypeInName);
    std::replace_if(
        plain.begin(), plain.end(), [](unsigned char c) { return isalnum(c) == 0; }, '_');
    for (unsigned n = 1;; ++n) {
        path = start + std::to_string(n) + "-" + plain + ".txt";
        Fd fd(root.open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (fd.valid() || errno != EEXIST) return fd;
    }
}

int fail(Log& log, const std::string& path, int error) {
    log.write(kError, kService, "cannot write " + path + ": " + strerror(error));
    return 1;
}

int dump(const Root& root, Properties& properties, Log& log) {
    const std::string type = properties.get(kTypeProperty).value_or("");
    std::string text = "dump type: " + type + "\n", path;
    for (const auto& part : kDumps)
        text += std::string("\nDUMP OF SERVICE ") + part.service + ":\n" + part.text;
    const Fd fd = create(root, type, path);
    if (!fd.valid()) return fail(log, path, errno);
    if (!writeAll(fd.get(), text.data(), text.size())) {
        const int error = errno;
        root.remove(path.c_str());
        return fail(log, path, error);
    }
    log.write(kInfo, kService, "wrote " + path);
    return 0;
}

}  // namespace

std::string audioDump(std::string_view service) {
    for (const auto& candidate : kDumps) {
        if (service == candidate.service) return candidate.text;
    }
    return "";
}

void addAudioDumpService(Services& services, const Root& root, Properties& properties, Log& log) {
    services.add(kService, [&] { return dump(root, properties, log); });
}

}  // namespace sim
