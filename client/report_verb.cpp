#include <sim/userspace/reports.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/report_wait.h"
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
    uint64_t seen = 0;
    const auto show = [&](const sim::Report& report) {
        print(report, options.json);
        return options.limits.reached(++seen);
    };
    ReportWait reports(client.phone(), 0);
    if (!options.follow) {
        reports.next(show);
    } else if (!reports.await(show, deadline)) {
        return options.limits.endAtTimeout(seen);
    }
    return kDone;
}

}  // namespace

void addReportVerb(CLI::App& app, Client& client) {
    auto options = std::make_shared<ReportOptions>();
    CLI::App* verb = app.add_subcommand("reports", "Show the exception reports, oldest first");
    verb->add_flag("--json", options->json,
                   "A JSON object a line: number, time_s, id, logs, log_names, name");
    CLI::Option* follow = verb->add_flag("--follow", options->follow, "Go on with those to come");
    options->limits.addTo(verb, follow);
    client.onVerb(verb,
                  {{kFailed, "the reports cannot be followed, or the output not be written"},
                   {kNoPhone, "there is no phone in the folder, or it has gone"},
                   {kTimeout, "--count was not reached in time"}},
                  [&client, options] { return showReports(client, *options); });
}

}  // namespace pelto
