#include <poll.h>
#include <sim/userspace/reports.h>
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/verbs.h"
#include "client/wait_options.h"

namespace pelto {
namespace {

struct ReportOptions {
    bool json = false;
    bool follow = false;
    Limits limits{"reports", "reports"};
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

// Waits for the folder of the reports to change; false at the deadline.
bool awaitChange(const sim::Fd& changes, const Deadline& deadline) {
    pollfd changed{changes.get(), POLLIN, 0};
    if (deadline.passed() || poll(&changed, 1, deadline.leftMillis()) <= 0) return false;
    char events[4096];
    while (read(changes.get(), events, sizeof events) > 0) {
    }
    return true;
}

int showReports(Client& client, const ReportOptions& options) {
    const Deadline deadline(options.limits.timeoutSeconds);
    const sim::Reports& reports = client.phone().reports();
    const sim::Fd changes = reports.watch();
    uint64_t last = 0;
    for (uint64_t seen = 0;;) {
        for (const sim::Report& report : reports.after(last)) {
            print(report, options.json);
            last = report.number;
            if (options.limits.reached(++seen)) return kDone;
        }
        fflush(stdout);
        if (!options.follow) return kDone;
        if (!changes.valid()) throw Failure(kFailed, "reports: cannot be followed here");
        if (!awaitChange(changes, deadline)) return options.limits.endAtTimeout(seen);
    }
}

}  // namespace

void addReportVerb(CLI::App& app, Client& client) {
    auto options = std::make_shared<ReportOptions>();
    CLI::App* verb = app.add_subcommand("reports", "Show the exception reports, oldest first");
    verb->add_flag("--json", options->json,
                   "A JSON object a line: number, time_s, id, logs, log_names, name");
    CLI::Option* follow = verb->add_flag("--follow", options->follow, "Go on with those to come");
    options->limits.addTo(verb, follow);
    client.onVerb(verb, [&client, options] { return showReports(client, *options); });
}

}  // namespace pelto
