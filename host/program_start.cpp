#include "host/program_start.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <stdexcept>

#include "sim/phone.h"

bool openPhone(const std::string& folder) {
    try {
        const std::string run = sim::Phone::open(folder).runDir();
        if (access(run.c_str(), W_OK) == 0) return true;
        fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, run.c_str(),
                strerror(errno));
        return false;
    } catch (const sim::NoPhone& failure) {
        fprintf(stderr, "%s: %s; make a phone with: pelto --phone DIR phone start\n",
                program_invocation_short_name, failure.what());
    } catch (const std::runtime_error& failure) {
        fprintf(stderr, "%s: %s\n", program_invocation_short_name, failure.what());
    }
    return false;
}
