// Measures the whole service on a phone of its own, one workload per run, and prints the figures as
// one line of JSON. Creates the phone's folder; the caller removes it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "bench/attackers.h"
#include "bench/service_workloads.h"
#include "sim/phone.h"

int main(int argc, char** argv) {
    const std::map<std::string, bench::ServiceWorkload> workloads = {
        {"start-up", bench::startUp},       {"dispatch", bench::dispatch},
        {"client", bench::client},          {"attacked", bench::attacked},
        {"socket", bench::socketFloor},     {"road", bench::road},
        {"client-road", bench::clientRoad},
    };
    CLI::App app{"Measures the service and prints one line of JSON."};
    std::string workload;
    std::string folder;
    bench::ServiceOptions options;
    CLI::App* run = app.add_subcommand("run");
    run->add_option("workload", workload)->required()->check(CLI::IsMember(workloads));
    run->add_option("phone", folder)->required();
    run->add_option("--events", options.events)->check(CLI::Range(1, 1000000));
    run->add_option("--gap-micros", options.gapMicros, "0: as fast as they go");
    CLI::App* send = app.add_subcommand("send", "What the workload client starts");
    send->add_option("phone", folder)->required();
    send->add_option("events", options.events)->required();
    send->add_option("gap-micros", options.gapMicros)->required();
    send->add_flag("--stops", options.stops);
    send->add_flag("--pairs", options.pairs);
    std::string kind;
    CLI::App* attack = app.add_subcommand("attack", "What the workload attacked starts");
    attack->add_option("phone", folder)->required();
    attack->add_option("kind", kind)->required();
    app.add_subcommand("make-phone")->add_option("phone", folder)->required();
    app.require_subcommand(1);
    CLI11_PARSE(app, argc, argv);

    sim::Phone::create(folder);
    if (*attack) _exit(bench::attack(kind));
    if (*send) _exit(bench::sendEvents(options));
    if (*run) {
        nlohmann::json line = {{"peer", "pelto"},
                               {"workload", workload},
                               {"events", options.events},
                               {"gap_micros", options.gapMicros}};
        line["figures"] = workloads.at(workload)(options);
        printf("%s\n", line.dump().c_str());
    }
    fflush(stdout);
    _exit(0);
}
