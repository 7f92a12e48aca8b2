#include "sim/default_phone.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>

#include "sim/base/text.h"
#include "sim/phone.h"

namespace sim {
namespace {

constexpr int kNoPhoneExit = 3;

// Destroys nothing: other threads of the program may run.
[[noreturn]] void end(const std::string& why) {
    fprintf(stderr, "%s: %s\n", program_invocation_short_name, printable(why).c_str());
    fflush(stdout);
    _exit(kNoPhoneExit);
}

Phone& openOrEnd(const std::string& folder) {
    try {
        return Phone::open(folder);
    } catch (const NoPhone& failure) {
        end(failure.what() + std::string("; make a phone with: pelto --phone ") + folder +
            " phone start, or name another in PELTO_PHONE");
    } catch (const std::runtime_error& failure) {
        end(failure.what());
    }
}

}  // namespace

std::string defaultFolder() {
    const char* const named = getenv("PELTO_PHONE");
    if (named != nullptr && *named != '\0') return named;
    const char* const runtime = getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime == '/') return std::string(runtime) + "/pelto-phone";
    return "/tmp/pelto-phone-" + std::to_string(getuid());
}

Phone& openDefaultPhone() {
    static Phone& phone = openOrEnd(defaultFolder());
    return phone;
}

}  // namespace sim
