#include "host/program_start.h"

#include <errno.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "sim/phone.h"

int parseCommandLine(CLI::App& app, int argc, char** argv) {
    app.failure_message([](const CLI::App* given, const CLI::Error& error) {
        const std::string& name = given->get_name();
        return name + ": " + error.what() + "; see " + name + " --help\n";
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
        sim::Phone::open(folder);
        return true;
    } catch (const std::runtime_error& failure) {
        fprintf(stderr, "%s: %s; make a phone with: pelto --phone DIR phone start\n",
                program_invocation_short_name, failure.what());
        return false;
    }
}
