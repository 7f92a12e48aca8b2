#include "sim/shell/phone_programs.h"

#include <fcntl.h>
#include <string.h>

#include "sim/base/clock.h"
#include "sim/base/fd.h"
#include "sim/base/root.h"
#include "sim/kernel/kernel_log.h"
#include "sim/shell/shell.h"
#include "sim/userspace/audio_dump.h"
#include "sim/userspace/log.h"
#include "sim/userspace/logcat.h"

namespace sim {
namespace {

using Words = std::vector<std::string>;

int print(int outputFd, const std::string& text) {
    return writeAll(outputFd, text.data(), text.size()) ? 0 : 1;
}

int complain(Log& log, const std::string& text) {
    log.write(kWarn, "sh", text);
    return 1;
}

int logcat(Log& log, const Words& words, int outputFd) {
    LogcatOptions options;
    if (std::string wrong = options.parse(words); !wrong.empty())
        return complain(log, "logcat: " + wrong);
    if (options.clear) {
        return log.clear() ? 0
                           : complain(log, std::string("logcat: not cleared: ") + strerror(errno));
    }
    // Without -d it would block the caller for ever.
    if (!options.dump)
        return complain(log, "logcat: needs -d, -t or -c in a command of the service");
    return runLogcat(log.directory(), options, outputFd);
}

int dmesg(Log& log, KernelLog& kernelLog, const Words& words, int outputFd) {
    const bool clears = words == Words{"-c"};
    if (!clears && !words.empty()) return complain(log, "dmesg: takes -c alone");
    const auto lines = clears ? kernelLog.readAndClear() : kernelLog.read();
    return lines ? print(outputFd, *lines)
                 : complain(log, std::string("dmesg: ") + strerror(errno));
}

int dumpsys(Log& log, const Words& words, int outputFd) {
    if (words.empty() || words[0][0] == '-')
        return complain(log, "dumpsys: takes a service's name");
    if (const std::string dump = audioDump(words[0]); !dump.empty()) return print(outputFd, dump);
    // Exits with 0, as on a phone.
    complain(log, "Can't find service: " + words[0]);
    return 0;
}

void appendVarint(std::string& out, uint64_t value) {
    for (; value >= 0x80; value >>= 7) out += static_cast<char>(value | 0x80);
    out += static_cast<char>(value);
}

// The shortest trace that the usual viewers read: one packet with the time since boot (field 8) on
// a trusted sequence (field 10).
std::string shortestTrace() {
    std::string packet = "\x40";
    appendVarint(packet, static_cast<uint64_t>(Clock::get().bootNanos()));
    packet += "\x50\x01";
    std::string trace = "\x0a";
    appendVarint(trace, packet.size());
    return trace + packet;
}

int perfetto(const Root& root, Log& log, const Words& words) {
    if (words.size() != 4 || words[0] != "--config" || words[1] != ":test" || words[2] != "--out")
        return complain(log, "perfetto: takes --config :test --out FILE");
    Fd out(root.open(words[3].c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!out.valid()) return complain(log, "perfetto: cannot open " + words[3]);
    return print(out.get(), shortestTrace());
}

}  // namespace

void addPhonePrograms(Shell& shell, const Root& root, Log& log, KernelLog& kernelLog) {
    shell.add("logcat", [&](const Words& words, int fd) { return logcat(log, words, fd); });
    shell.add("dmesg",
              [&](const Words& words, int fd) { return dmesg(log, kernelLog, words, fd); });
    shell.add("dumpsys", [&](const Words& words, int fd) { return dumpsys(log, words, fd); });
    shell.add("perfetto", [&](const Words& words, int) { return perfetto(root, log, words); });
}

}  // namespace sim
