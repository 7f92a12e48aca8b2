#include "sim/userspace/audio_dump.h"

#include <ctype.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>

#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/root.h"
#include "sim/phone.h"
#include "sim/userspace/phone_log.h"
#include "sim/userspace/properties.h"
#include "sim/userspace/services.h"

namespace sim {
namespace {

constexpr char kService[] = "audiodumpinfo";
constexpr char kTypeProperty[] = "kelvo.audio.dumpinfo.type";
constexpr char kDirectory[] = "/data/persist_log/TMP/audio_dumpsys/";
constexpr size_t kTypeInName = 32;

// What they say while nothing plays.
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
    const time_t seconds = static_cast<time_t>(millis / 1000);
    struct tm local {};
    localtime_r(&seconds, &local);
    char second[40], whole[48];
    strftime(second, sizeof(second), "%Y-%m-%d_%H-%M-%S", &local);
    snprintf(whole, sizeof(whole), "%s.%03d", second, static_cast<int>(millis % 1000));
    return whole;
}

// A new file STAMP-N-TYPE.txt: of those of one millisecond, whichever process writes them, N tells
// which is which.
Fd create(const Root& root, const std::string& type, std::string& path) {
    const std::string start = kDirectory + stamp() + "-";
    std::string plain = type.substr(0, kTypeInName);
    std::replace_if(
        plain.begin(), plain.end(), [](unsigned char c) { return isalnum(c) == 0; }, '_');
    for (unsigned n = 1;; ++n) {
        path = start + std::to_string(n) + "-" + plain + ".txt";
        Fd fd(root.open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (fd.valid() || errno != EEXIST) return fd;
    }
}

int fail(const std::string& path, int error) {
    logAs(kService, kError, "cannot write " + path + ": " + strerror(error));
    return 1;
}

int dump(Phone& phone) {
    const std::string type = phone.properties().get(kTypeProperty).value_or("");
    std::string text = "dump type: " + type + "\n", path;
    for (const auto& part : kDumps)
        text += std::string("\nDUMP OF SERVICE ") + part.service + ":\n" + part.text;
    const Fd fd = create(phone.root(), type, path);
    if (!fd.valid()) return fail(path, errno);
    if (!writeAll(fd.get(), text.data(), text.size())) {
        const int error = errno;
        phone.root().remove(path.c_str());
        return fail(path, error);
    }
    logAs(kService, kInfo, "wrote " + path);
    return 0;
}

}  // namespace

std::string audioDump(std::string_view service) {
    for (const auto& candidate : kDumps) {
        if (service == candidate.service) return candidate.text;
    }
    return "";
}

void addAudioDumpService(Phone& phone) {
    phone.services().add(kService, [&phone] { return dump(phone); });
}

}  // namespace sim
