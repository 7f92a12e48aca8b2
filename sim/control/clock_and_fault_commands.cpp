#include "sim/control/clock_and_fault_commands.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/base/root.h"
#include "sim/base/text.h"
#include "sim/control/server.h"
#include "sim/userspace/program_faults.h"
#include "sim/userspace/reports.h"

namespace sim {
namespace {

using Arguments = Control::Arguments;

constexpr double kMaxSeconds = 1e8;                               // three years
constexpr int64_t kLastNanos = 9000000000 * int64_t{1000000000};  // in the year 2255
constexpr double kMaxSleepers = 1000;
constexpr std::chrono::seconds kSleepersTimeout{20};
constexpr int kMaxStatus = 255;
constexpr char kFaultUsage[] =
    "fault: takes program NAME fail STATUS|hang|run, disk full|free or reports refuse|take";

double readNumber(const std::string& text, double max) {
    char* end = nullptr;
    const double number = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(number > 0 && number <= max))
        throw std::invalid_argument("clock: '" + text + "' is no number above 0 and up to " +
                                    std::to_string(static_cast<int64_t>(max)));
    return number;
}

// Keeps the time within 64 bits however often it is moved on.
Reply advance(double seconds) {
    const int64_t step = std::llround(seconds * 1e9);
    if (step > kLastNanos - Clock::get().wallNanos())
        return {false, {"clock: no time after the year 2255"}};
    Clock::get().advance(std::chrono::nanoseconds(step));
    return {true, {}};
}

Reply awaitSleepers(const std::string& count) {
    const int least = static_cast<int>(readNumber(count, kMaxSleepers));
    if (Clock::get().waitForSleepers(least, std::chrono::seconds(0))) return {true, {}};
    return {false, {"clock: fewer than " + count + " threads sleep"}, kSleepersTimeout};
}

Reply runClock(const Arguments& words) {
    if (words.size() == 2 && words[0] == "advance")
        return advance(readNumber(words[1], kMaxSeconds));
    if (words.size() == 2 && words[0] == "await-sleepers") return awaitSleepers(words[1]);
    throw std::invalid_argument("clock: takes advance SECONDS or await-sleepers N");
}

int readStatus(const std::string& text) {
    if (const auto status = numberIn(text, 1, kMaxStatus)) return static_cast<int>(*status);
    throw std::invalid_argument("fault: '" + text + "' is no status from 1 to 255");
}

void checkProgram(ProgramFaults& faults, const std::string& name) {
    const std::vector<std::string> programs = faults.programs();
    if (std::binary_search(programs.begin(), programs.end(), name)) return;
    std::string known;
    for (const std::string& program : programs) known += ' ' + program;
    throw std::invalid_argument("fault: there is no program '" + name + "'; there are:" + known);
}

void setProgramFault(ProgramFaults& programs, const Arguments& words) {
    if (words.size() < 3) throw std::invalid_argument(kFaultUsage);
    const std::string& name = words[1];
    checkProgram(programs, name);
    if (words.size() == 4 && words[2] == "fail") {
        programs.fail(name, readStatus(words[3]));
    } else if (words.size() == 3 && words[2] == "hang") {
        programs.hang(name);
    } else if (words.size() == 3 && words[2] == "run") {
        programs.fail(name, 0);
        programs.release(name);
    } else {
        throw std::invalid_argument(kFaultUsage);
    }
}

// Whether the words are `part` followed by `on` or by `off`.
bool isSwitch(const Arguments& words, const char* part, const char* on, const char* off) {
    return words == Arguments{part, on} || words == Arguments{part, off};
}

}  // namespace

void addClockCommand(Control& control) {
    control.add("clock", runClock);
}

void addFaultCommand(Control& control, ProgramFaults& programs, Root& root, Reports& reports) {
    control.add("fault", [&](const Arguments& words) {
        if (isSwitch(words, "disk", "full", "free")) {
            root.fillDisk(words[1] == "full");
        } else if (isSwitch(words, "reports", "refuse", "take")) {
            reports.refuse(words[1] == "refuse");
        } else if (!words.empty() && words[0] == "program") {
            setProgramFault(programs, words);
        } else {
            throw std::invalid_argument(kFaultUsage);
        }
        return Reply{true, {}};
    });
}

}  // namespace sim
