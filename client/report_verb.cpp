#include <sim/userspace/reports.h>
#include <stdio.h>

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
        if (deadline.passed()) return options.limits.endAtTimeout(seen);
        const std::string directory = client.phone().runDir() + "/reports";
        if (!sim::awaitChange(changes, directory, deadline.leftMillis()) && !deadline.passed())
            throw Failure(kNoPhone, "reports: the phone's folder has gone");
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
