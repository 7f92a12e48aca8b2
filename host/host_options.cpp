#include "host/host_options.h"

#include <CLI/CLI.hpp>

namespace {

constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0  stopped by SIGTERM or SIGINT (a second one ends it at once, with 1)\n"
    "  1  the service could not be published\n"
    "  2  wrong usage\n"
    "  3  the folder is missing or is no phone's\n"
    "  4  a service of that name is already published on that phone\n";

}  // namespace

int parseHostOptions(int argc, char** argv, HostOptions* options) {
    CLI::App app("Hosts the multimedia diagnostics service of a simulated phone.", "peltoserviced");
    app.footer(kExitCodes);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("peltoserviced: ") + error.what() + "; see peltoserviced --help\n";
    });
    app.add_option("--phone", options->phoneFolder, "Folder of the phone")
        ->required()
        ->type_name("DIR");
    app.add_option("--threads", options->threads, "How many threads execute calls")
        ->check(CLI::Range(1, 256))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--ready-fd", options->readyFd,
                   "Descriptor that gets the line \"ready\" once clients can call")
        ->check(CLI::NonNegativeNumber)
        ->type_name("FD");
    app.add_flag("--workstation-kernel", options->workstationKernel,
                 "Point the audio channel at this machine's own kernel instead of the phone's; "
                 "looking its family up there can make the machine load modules");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kHostStopped : kHostUsage;
    }
    return -1;
}
