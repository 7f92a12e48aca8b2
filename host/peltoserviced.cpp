// The program that hosts the service: its command line and main function.
#include <malloc.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <map>
#include <optional>

#include "commandline/exit_codes.h"
#include "commandline/parse.h"
#include "host/service_host.h"
#include "sim/base/fd.h"

namespace {

const std::map<int, std::string> kExitCodes = {
    {kHostStopped, "stopped by SIGTERM or SIGINT (a second one ends it at once, with 1)"},
    {kHostFailed, "the service could not be published"},
    {kHostUsage, "wrong usage"},
    {kHostNoPhone, "the folder is missing or is no phone's, or was deleted or moved meanwhile"},
    {kHostAlreadyPublished, "a service of that name is already published on that phone"},
};

std::optional<int> parse(int argc, char** argv, HostOptions& options) {
    CLI::App app("Hosts the multimedia diagnostics service of a simulated phone.", "peltoserviced");
    commandline::listExitCodes(app, kExitCodes);
    app.add_option("--phone", options.phoneFolder, "Folder of the phone")
        ->required()
        ->type_name("DIR");
    app.add_option("--threads", options.threads, "How many threads execute calls")
        ->check(CLI::Range(1, 256))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--ready-fd", options.readyFd,
                   "Descriptor that gets the line \"ready\" once clients can call")
        ->check(sim::descriptorFault)
        ->type_name("FD");
    app.add_flag("--workstation-kernel", options.workstationKernel,
                 "Point the audio channel at this machine's own kernel instead of the phone's; "
                 "looking its family up there can make the machine load modules");
    return commandline::parse(app, argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
    // Else each thread has a heap of its own, which keeps memory that a burst of events has freed.
    mallopt(M_ARENA_MAX, 2);
    HostOptions options;
    std::optional<int> code = parse(argc, argv, options);
    if (!code) {
        signal(SIGPIPE, SIG_IGN);  // writing to --ready-fd may fail, but does not end the process
        StopSignals signals;
        code = openPhone(options.phoneFolder) ? runServiceHost(options, signals) : kHostNoPhone;
    }
    commandline::end(*code);
}
