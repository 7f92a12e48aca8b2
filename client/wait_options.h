#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>

#include "client/verb_support.h"

namespace pelto {

// The end of a wait: `seconds` from construction, or never when they are 0. A verb makes it first:
// the time to connect counts, too.
class Deadline {
  public:
    explicit Deadline(double seconds)
        : mLimited(seconds > 0),
          mEnd(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double>(seconds))) {}

    bool limited() const { return mLimited; }
    bool passed() const { return mLimited && Clock::now() >= mEnd; }
    // The nanoseconds left, 0 when it has passed; only to be called when limited().
    int64_t leftNanos() const {
        return std::max<int64_t>(0, std::chrono::nanoseconds(mEnd - Clock::now()).count());
    }
    // The milliseconds left, as poll() takes them: rounded up, -1 when not limited.
    int leftMillis() const {
        if (!mLimited) return -1;
        return static_cast<int>(std::min<int64_t>((leftNanos() + 999999) / 1000000, INT32_MAX));
    }

  private:
    using Clock = std::chrono::steady_clock;

    const bool mLimited;
    const Clock::time_point mEnd;
};

// Accepts a number of seconds from `least` to 1e9.
inline CLI::Validator secondsFrom(double least) {
    const auto check = [least](const std::string& text) -> std::string {
        char* end = nullptr;
        const double seconds = strtod(text.c_str(), &end);
        if (end != text.c_str() && *end == '\0' && seconds >= least && seconds <= 1e9) return "";
        std::ostringstream why;
        why << "'" << text << "' is no number of seconds from " << least << " to 1e9";
        return why.str();
    };
    return CLI::Validator(check, "");
}

inline CLI::Option* addTimeout(CLI::App* verb, double& seconds, const char* does) {
    return verb->add_option("--timeout", seconds, does)->check(secondsFrom(0.001))->type_name("S");
}

// The options --count and --timeout of a verb that waits for things to come.
struct Limits {
    const char* verb;
    const char* things;         // the plural of what is counted
    uint64_t count = 0;         // 0: no limit
    double timeoutSeconds = 0;  // 0: no limit

    // Adds the options; `condition`, unless null, must be given with them.
    void addTo(CLI::App* app, CLI::Option* condition = nullptr) {
        CLI::Option* const options[] = {
            app->add_option("--count", count, std::string("End after so many ") + things)
                ->check(CLI::Range(1, 1000000000))
                ->type_name("N"),
            addTimeout(app, timeoutSeconds,
                       "End after so many seconds; with --count not reached, exit code 5")};
        if (condition == nullptr) return;
        for (CLI::Option* option : options) option->needs(condition);
    }

    bool reached(uint64_t seen) const { return count > 0 && seen == count; }
    // The exit code at the timeout; throws Failure when `count` was asked for.
    int endAtTimeout(uint64_t seen) const {
        if (count == 0) return kDone;
        throw Failure(kTimeout, std::string(verb) + ": timeout after " + std::to_string(seen) +
                                    " of " + std::to_string(count) + " " + things);
    }
};

}  // namespace pelto
