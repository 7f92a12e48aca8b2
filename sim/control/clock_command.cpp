#include "sim/control/clock_command.h"

#include <stdlib.h>

#include <cmath>
#include <stdexcept>

#include "sim/base/clock.h"
#include "sim/control/control.h"

namespace sim {
namespace {

constexpr double kMostSeconds = 1e8;  // three years
constexpr double kMostSleepers = 1000;
constexpr std::chrono::seconds kPatience{20};

double readNumber(const std::string& text, double most) {
    char* end = nullptr;
    const double number = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(number > 0 && number <= most))
        throw std::runtime_error("clock: '" + text + "' is no number above 0 and up to " +
                                 std::to_string(static_cast<int64_t>(most)));
    return number;
}

Reply awaitSleepers(const std::string& count) {
    const int least = static_cast<int>(readNumber(count, kMostSleepers));
    if (Clock::get().waitForSleepers(least, std::chrono::seconds(0))) return {true, {}};
    return {false, {"clock: fewer than " + count + " threads sleep"}, kPatience};
}

Reply run(const Control::Arguments& words) {
    if (words.size() == 2 && words[0] == "advance") {
        const double seconds = readNumber(words[1], kMostSeconds);
        Clock::get().advance(std::chrono::nanoseconds(std::llround(seconds * 1e9)));
    } else if (words.size() == 2 && words[0] == "await-sleepers") {
        return awaitSleepers(words[1]);
    } else {
        throw std::runtime_error("clock: takes advance SECONDS or await-sleepers N");
    }
    return {true, {}};
}

}  // namespace

void addClockCommand(Control& control) {
    control.add("clock", run);
}

}  // namespace sim
