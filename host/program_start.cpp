#include "host/program_start.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "sim/base/text.h"
#include "sim/phone.h"

int parseCommandLine(CLI::App& app, int argc, char** argv) {
    app.failure_message([](const CLI::App* given, const CLI::Error& error) {
        const std::string& name = given->get_name();
        return name + ": " + sim::brief(error.what()) + "; see " + name + " --help\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kHostStopped : kHostUsage;
    }
    return -1;
}

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
