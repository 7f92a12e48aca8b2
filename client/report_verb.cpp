#include <poll.h>
#include <sim/reports.h>
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/client.h"
#include "client/deadline.h"
#include "client/text.h"
#include "client/verbs.h"

namespace pelto {
namespace {

struct ReportOptions {
    bool json = false;
    bool follow = false;
    uint64_t count = 0;         // 0 is no end
    double timeoutSeconds = 0;  // 0 is none
};

void print(const sim::Report& report, bool json) {
    const std::string line = json ? jsonLine({{"number", report.number},
                                              {"time_s", report.time},
                                              {"id", report.id},
                                              {"logs", report.logs},
                                              {"log_names", report.logNames()},
                                              {"name", report.name}})
                                  : report.text();
    puts(line.c_str());
}

// False when none has come in time.
bool awaitChange(const sim::Fd& changes, const Deadline& deadline) {
    pollfd changed{changes.get(), POLLIN, 0};
    if (deadline.passed() || poll(&changed, 1, deadline.leftMillis()) <= 0) return false;
    char events[4096];
    while (read(changes.get(), events, sizeof events) > 0) {
    }
    return true;
}

int endAtTimeout(const ReportOptions& options, uint64_t seen) {
    if (options.count == 0) return kDone;
    throw Failure(kTimeout, "reports: timeout after " + std::to_string(seen) + " of " +
                                std::to_string(options.count) + " reports");
}

int showReports(Client& client, const ReportOptions& options) {
    const sim::Reports& reports = client.phone().reports();
    const sim::Fd changes = reports.watch();
    const Deadline deadline(options.timeoutSeconds);
    uint64_t last = 0;
    for (uint64_t seen = 0;;) {
        for (const sim::Report& report : reports.after(last)) {
            print(report, options.json);
            last = report.number;
            if (++seen == options.count) return kDone;
        }
        fflush(stdout);
        if (!options.follow) return kDone;
        if (!changes.valid()) throw Failure(kFailed, "reports: cannot be followed here");
        if (!awaitChange(changes, deadline)) return endAtTimeout(options, seen);
    }
}

}  // namespace

void addReportVerb(CLI::App& app, Client& client) {
    auto options = std::make_shared<ReportOptions>();
    CLI::App* verb = app.add_subcommand("reports", "Show the exception reports, oldest first");
    verb->add_flag("--json", options->json,
                   "A JSON object a line: number, time_s, id, logs, log_names, name");
    CLI::Option* follow = verb->add_flag("--follow", options->follow, "Go on with those to come");
    verb->add_option("--count", options->count, "End after so many reports")
        ->check(CLI::Range(1, 1000000000))
        ->needs(follow)
        ->type_name("N");
    verb->add_option("--timeout", options->timeoutSeconds,
                     "End after so many seconds; with --count not reached, exit code 5")
        ->check(CLI::Range(0.001, 1e9))
        ->needs(follow)
        ->type_name("S");
    client.onVerb(verb, [&client, options] { return showReports(client, *options); });
}

}  // namespace pelto
