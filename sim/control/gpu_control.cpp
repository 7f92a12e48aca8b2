#include <algorithm>
#include <map>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/control/control.h"
#include "sim/kernel/gpu.h"

namespace sim {
namespace {

constexpr size_t kSnapshotBytes = 64 << 20;

[[noreturn]] void refuse(const std::string& why) {
    throw std::runtime_error("gpu: " + why);
}

size_t readSize(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 8 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    const size_t size = digits ? std::stoul(text) : SIZE_MAX;
    if (size > kSnapshotBytes)
        refuse("'" + text + "' is no size from 0 to " + std::to_string(kSnapshotBytes));
    return size;
}

// The options, "--name value" each, of which none but those in `values` are taken.
void readOptions(const Control::Arguments& words, std::map<std::string, std::string>& values) {
    for (size_t i = 1; i < words.size(); i += 2) {
        auto value = values.find(words[i]);
        if (value == values.end()) refuse("'" + words[i] + "' is no option of " + words[0]);
        if (i + 1 == words.size()) refuse(words[i] + " takes a value");
        if (words[i + 1].size() > Attributes::kReadBytes) refuse(words[i] + " is too long");
        value->second = words[i + 1];
    }
}

std::string onlyArgument(const Control::Arguments& words) {
    if (words.size() != 2) refuse(words[0] + " takes one argument");
    return words[1];
}

void fault(Gpu& gpu, const Control::Arguments& words) {
    const int64_t seconds = Clock::get().wallNanos() / 1000000000;
    std::map<std::string, std::string> values{{"--hash", ""},
                                              {"--timestamp", std::to_string(seconds) + "\n"},
                                              {"--control", "0\n"},
                                              {"--size", "65536"}};
    readOptions(words, values);
    gpu.fault({values["--timestamp"], values["--hash"], values["--control"],
               Gpu::snapshotOf(readSize(values["--size"]))});
}

void vanish(Gpu& gpu, const Control::Arguments& words) {
    std::map<std::string, std::string> values{{"--after", ""}};
    readOptions(words, values);
    if (values["--after"].empty()) {
        gpu.vanish();
    } else {
        gpu.vanishAfter(readSize(values["--after"]));
    }
}

void makeUnreadable(Gpu& gpu, const Control::Arguments& words) {
    const std::string file = onlyArgument(words);
    for (const std::string path : {Gpu::kTimestamp, Gpu::kControl, Gpu::kHashId, Gpu::kDump}) {
        if (path.substr(path.rfind('/') + 1) == file) return gpu.makeUnreadable(path);
    }
    refuse("there is no file '" + file + "'");
}

// A collection on a running clock takes its reader 20 s and more.
Reply awaitReader(Gpu& gpu) {
    constexpr std::chrono::seconds kPatience{60};
    if (gpu.hasReader()) return {true, {}};
    return {false,
            {"gpu: nobody waits for the next fault yet, or the last one may not be dumped"},
            kPatience};
}

Reply run(Gpu& gpu, const Control::Arguments& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "fault") {
        fault(gpu, words);
    } else if (verb == "control") {
        gpu.setControl(onlyArgument(words));
    } else if (verb == "vanish") {
        vanish(gpu, words);
    } else if (verb == "unreadable") {
        makeUnreadable(gpu, words);
    } else if (verb == "short-reads") {
        gpu.shortenReads(readSize(onlyArgument(words)));
    } else if (verb == "appear" && words.size() == 1) {
        gpu.appear();
    } else if (verb == "await-reader" && words.size() == 1) {
        return awaitReader(gpu);
    } else {
        refuse("takes fault, control, vanish, appear, unreadable, short-reads or await-reader");
    }
    return {true, {}};
}

}  // namespace

void addGpuCommand(Control& control, Gpu& gpu) {
    control.add("gpu", [&gpu](const Control::Arguments& words) { return run(gpu, words); });
}

}  // namespace sim
