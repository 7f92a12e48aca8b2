// Verbs that start, stop and describe a phone.
#include <binder/BpBinder.h>
#include <binder/transport/connection.h>
#include <ipeltoservice/IPeltoService.h>
#include <sim/userspace/properties.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <sstream>

#include "client/daemon_control.h"
#include "client/verbs.h"

namespace pelto {
namespace {

namespace fs = std::filesystem;

struct StartOptions {
    bool noService = false;
    int threads = 16;
    std::string under;
};

Daemon serviceDaemon(const sim::Phone& phone) {
    return Daemon(phone.runDir(), "peltoserviced");
}

// The command line that starts peltoserviced, which lies beside this program.
std::vector<std::string> hostCommand(const sim::Phone& phone, const StartOptions& options) {
    std::vector<std::string> command;
    std::istringstream under(options.under);
    for (std::string word; under >> word;) command.push_back(word);
    const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path() / "peltoserviced";
    command.insert(command.end(), {beside.string(), "--phone", phone.folder(), "--threads",
                                   std::to_string(options.threads), "--ready-fd",
                                   std::to_string(Daemon::kReadyFd)});
    return command;
}

sim::Phone& createPhone(const std::string& folder) {
    try {
        return sim::Phone::create(folder);
    } catch (const sim::NoPhone& failure) {
        throw Failure(kFailed, std::string(failure.what()) + "; give a new or empty folder");
    } catch (const std::runtime_error& failure) {
        throw Failure(kFailed, failure.what());
    }
}

int start(Client& client, const StartOptions& options) {
    const sim::Phone& phone = createPhone(client.folder());
    printf("phone in %s\n", phone.folder().c_str());
    if (options.noService) return kDone;
    const ProcessId service = serviceDaemon(phone).start(hostCommand(phone, options));
    printf("%s runs, process %d\n", android::kPeltoServiceName, service.pid);
    return kDone;
}

int stop(Client& client) {
    const auto stopped = serviceDaemon(client.phone()).stop();
    if (stopped) {
        printf("%s stopped, process %d\n", android::kPeltoServiceName, stopped->pid);
        return kDone;
    }
    if (client.findService() != nullptr) {
        throw Failure(kFailed,
                      "phone stop: the service was not started by phone start; end its process, "
                      "which phone status names");
    }
    puts("no process of the phone ran");
    return kDone;
}

nlohmann::ordered_json serviceStatus(const android::sp<android::IBinder>& service) {
    if (service == nullptr) return {{"published", false}};
    const pid_t pid = service->remoteBinder()->connection()->peerPid();
    const auto process = ProcessId::of(pid);
    const double uptime = process ? process->uptimeSeconds() : 0;
    return {{"published", true}, {"pid", pid}, {"uptime_s", static_cast<int64_t>(uptime)}};
}

uint64_t logBytes(const sim::Phone& phone) {
    uint64_t bytes = 0;
    std::error_code ignored;
    for (const char* file : {"main", "main.old"}) {
        const auto size = fs::file_size(phone.runDir() + "/log/" + file, ignored);
        if (!ignored) bytes += size;
    }
    return bytes;
}

void printStatus(const nlohmann::ordered_json& status) {
    const auto& service = status["service"];
    printf("folder      %s\n", status["folder"].get<std::string>().c_str());
    if (service["published"].get<bool>()) {
        printf("service     process %d, up %lld s\n", service["pid"].get<int>(),
               static_cast<long long>(service["uptime_s"].get<int64_t>()));
    } else {
        printf("service     not published\n");
    }
    printf("log         %llu bytes\n",
           static_cast<unsigned long long>(status["log_bytes"].get<uint64_t>()));
    printf("properties  %d\n", status["properties"].get<int>());
}

int status(Client& client, bool json) {
    sim::Phone& phone = client.phone();
    const auto service = client.findService();
    const nlohmann::ordered_json found = {{"folder", phone.folder()},
                                          {"service", serviceStatus(service)},
                                          {"log_bytes", logBytes(phone)},
                                          {"properties", phone.properties().all().size()}};
    if (json) {
        puts(jsonLine(found).c_str());
    } else {
        printStatus(found);
    }
    return service != nullptr ? kDone : kNoService;
}

void addStart(CLI::App& phone, Client& client) {
    auto options = std::make_shared<StartOptions>();
    CLI::App* verb = phone.add_subcommand(
        "start", "Make the phone's folder where there is none and start the service on it");
    verb->add_flag("--no-service", options->noService, "Only make the folder");
    verb->add_option("--threads", options->threads, "How many threads of the service execute calls")
        ->check(CLI::Range(1, 256))
        ->type_name("N")
        ->capture_default_str();
    verb->add_option("--under", options->under,
                     "Words before the service's command: an emulator, a debugger, a tracer")
        ->type_name("WORDS");
    client.onVerb(verb, [&client, options] { return start(client, *options); });
}

}  // namespace

void addPhoneVerbs(CLI::App& app, Client& client) {
    CLI::App* phone = app.add_subcommand("phone", "Start, stop or describe the phone");
    Client::needsVerb(phone);
    addStart(*phone, client);
    CLI::App* stopVerb =
        phone->add_subcommand("stop", "End the processes that start started; the folder stays");
    client.onVerb(stopVerb, [&client] { return stop(client); });

    auto json = std::make_shared<bool>(false);
    CLI::App* statusVerb =
        phone->add_subcommand("status", "Describe the phone; exit code 4 without a service");
    statusVerb->add_flag("--json", *json, "As a JSON object");
    client.onVerb(statusVerb, [&client, json] { return status(client, *json); });
}

}  // namespace pelto
