// Measures one peer under one workload per run and prints the figures as one line of JSON.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "bench/loop_workloads.h"

namespace bench {

void Peer::postIn(int64_t, const Message&) {
    fputs("this peer has no timers of its own\n", stderr);
    _exit(2);
}

std::map<std::string, MakePeer>& peers() {
    static auto& all = *new std::map<std::string, MakePeer>();
    return all;
}

}  // namespace bench

int main(int argc, char** argv) {
    const std::map<std::string, bench::Workload> workloads = {
        {"flat-out", bench::flatOut},    {"bounded", bench::bounded},
        {"wake", bench::wakeLatency},    {"drain", bench::drain},
        {"delayed", bench::delayed},     {"self-post", bench::selfPost},
        {"insert", bench::insertBursts}, {"insert-among", bench::insertAmong},
    };
    CLI::App app{"Measures one event loop under one workload and prints one line of JSON."};
    std::string peer;
    std::string workload;
    bench::Options options;
    app.add_option("peer", peer)->required()->check(CLI::IsMember(bench::peers()));
    app.add_option("workload", workload)->required()->check(CLI::IsMember(workloads));
    app.add_option("--messages", options.messages)->check(CLI::Range(1, 10000000));
    app.add_option("--producers", options.producers)->check(CLI::Range(1, 64));
    app.add_flag("--read-whole", options.readWhole, "read every byte, not the code alone");
    CLI11_PARSE(app, argc, argv);

    options.make = bench::peers().at(peer);
    nlohmann::json line = {{"peer", peer},
                           {"workload", workload},
                           {"messages", options.messages},
                           {"producers", options.producers},
                           {"read_whole", options.readWhole}};
    line["figures"] = workloads.at(workload)(options);
    printf("%s\n", line.dump().c_str());
    fflush(stdout);
    _exit(0);
}
