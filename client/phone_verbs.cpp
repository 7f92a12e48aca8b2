// Verbs that start, stop and describe a phone.
#include <ipeltoservice/IPeltoService.h>
#include <sim/userspace/properties.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <sstream>

#include "client/daemon_control.h"
#include "client/verbs.h"
#include "client/wait_options.h"

namespace pelto {
namespace {

namespace fs = std::filesystem;

struct StartOptions {
    bool noService = false;
    int threads = 16;
    std::string under;
    CLI::Option* threadsGiven = nullptr;

    bool shapeService() const { return !under.empty() || threadsGiven->count() > 0; }
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
    if (options.noService) {
        printf("phone in %s\n", phone.folder().c_str());
        return kDone;
    }
    const Daemon::Started service = serviceDaemon(phone).start(hostCommand(phone, options), [&] {
        const auto published = client.findService();
        return published != nullptr ? processOf(published) : 0;
    });
    if (service.ranAlready && options.shapeService()) {
        throw Failure(kUsage,
                      "phone start: --threads and --under change nothing: the service runs "
                      "already, process " +
                          std::to_string(service.pid) + "; first: pelto phone stop");
    }
    printf("phone in %s\n", phone.folder().c_str());
    printf("%s runs, process %d\n", android::kPeltoServiceName, service.pid);
    return kDone;
}

int stop(Client& client, double patienceSeconds) {
    const auto stopped = serviceDaemon(client.phone()).stop(patienceSeconds);
    if (stopped) {
        for (const pid_t pid : stopped->killed)
            printf("killed process %d%s\n", pid, patienceSeconds > 0 ? ": not ended in time" : "");
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
    const android::status_t answer = service->pingBinder();
    if (answer == android::DEAD_OBJECT) return {{"published", false}};
    const pid_t pid = processOf(service);  // 0 when it lets no client in at all
    const auto process = ProcessId::of(pid);
    const double uptime = process ? process->uptimeSeconds() : 0;
    return {{"published", true},
            {"pid", pid},
            {"uptime_s", static_cast<int64_t>(uptime)},
            {"answers", pid != 0 && answer != android::TIMED_OUT}};
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
        printf("service     process %d, up %lld s%s\n", service["pid"].get<int>(),
               static_cast<long long>(service["uptime_s"].get<int64_t>()),
               service["answers"].get<bool>() ? "" : ", does not answer");
    } else {
        printf("service     not published\n");
    }
    printf("log         %llu bytes\n",
           static_cast<unsigned long long>(status["log_bytes"].get<uint64_t>()));
    printf("properties  %d\n", status["properties"].get<int>());
}

int status(Client& client, bool json) {
    client.limitCallsByDefault(1);
    sim::Phone& phone = client.phone();
    const nlohmann::ordered_json found = {{"folder", phone.folder()},
                                          {"service", serviceStatus(client.findService())},
                                          {"log_bytes", logBytes(phone)},
                                          {"properties", phone.properties().all().size()}};
    if (json) {
        puts(jsonLine(found).c_str());
    } else {
        printStatus(found);
    }
    const auto& service = found["service"];
    if (!service["published"].get<bool>()) return kNoService;
    return service["answers"].get<bool>() ? kDone : kTimeout;
}

void addStart(CLI::App& phone, Client& client) {
    auto options = std::make_shared<StartOptions>();
    CLI::App* verb = phone.add_subcommand(
        "start", "Make the phone's folder where there is none and start the service on it");
    CLI::Option* const only =
        verb->add_flag("--no-service", options->noService, "Only make the folder");
    options->threadsGiven = verb->add_option("--threads", options->threads,
                                             "How many threads of the service execute calls")
                                ->check(CLI::Range(1, 256))
                                ->type_name("N")
                                ->capture_default_str()
                                ->excludes(only);
    verb->add_option("--under", options->under,
                     "Words before the service's command: an emulator, a debugger, a tracer")
        ->type_name("WORDS")
        ->excludes(only);
    client.onVerb(
        verb,
        {{kFailed, "the folder cannot be made a phone, or the service does not start"},
         {kUsage, "wrong usage, or --threads or --under for a service that runs"},
         {kTimeout, "the service does not start in time, or another start or stop takes too long"}},
        [&client, options] { return start(client, *options); });
}

void addStop(CLI::App& phone, Client& client) {
    auto patience = std::make_shared<double>(20);
    CLI::App* verb =
        phone.add_subcommand("stop", "End the processes that start started; the folder stays");
    verb->add_option("--patience", *patience,
                     "How long the service may take to finish; then it is killed")
        ->check(secondsFrom(0))
        ->type_name("S")
        ->capture_default_str();
    verb->add_flag_callback(
        "--force", [patience] { *patience = 0; }, "Kill it at once");
    client.onVerb(
        verb,
        {{kFailed, "the service was not started by phone start, or the folder cannot be written"},
         kNoPhone,
         {kTimeout, "a killed process does not end, or another start or stop takes too long"}},
        [&client, patience] { return stop(client, *patience); });
}

}  // namespace

void addPhoneVerbs(CLI::App& app, Client& client) {
    CLI::App* phone = app.add_subcommand("phone", "Start, stop or describe the phone");
    Client::needsVerb(phone);
    addStart(*phone, client);
    addStop(*phone, client);

    auto json = std::make_shared<bool>(false);
    CLI::App* statusVerb =
        phone->add_subcommand("status", "Describe the phone and ask whether its service answers");
    statusVerb->add_flag("--json", *json, "As a JSON object");
    client.onVerb(statusVerb,
                  {{kDone, "the service answers"},
                   {kFailed, kUnwritten},
                   kNoPhone,
                   {kNoService, "no service is published"},
                   kTimeout},
                  [&client, json] { return status(client, *json); });
}

}  // namespace pelto
