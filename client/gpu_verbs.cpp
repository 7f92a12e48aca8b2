// Verbs for faults of the graphics driver, the statistics about them and the clock that times them.
#include <sim/base/line_file.h>
#include <stdio.h>
#include <string.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <sstream>

#include "client/verbs.h"
#include "client/wait_options.h"

namespace pelto {
namespace {

void addGpuFault(CLI::App& gpu, Client& client) {
    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* verb = gpu.add_subcommand("fault", "The driver tells of a fault and its snapshot");
    const auto option = [&](const std::string& name, const char* does, const char* type) {
        return verb
            ->add_option_function<std::string>(
                name,
                [words, name](const std::string& value) {
                    words->insert(words->end(), {name, value});
                },
                does)
            ->type_name(type);
    };
    option("--hash", "Its hash id; none when not given", "H");
    option("--timestamp", "Its time stamp; the phone's seconds when not given", "T");
    option("--size", "How many bytes its snapshot has; 65536 when not given", "N")
        ->check(CLI::Range(0, INT32_MAX));
    option("--control", "Whether a dump may be taken: 0, as when not given, says yes", "C");
    client.onVerb(verb, serviceExits(kNotCarriedOut), [&client, words] {
        std::vector<std::string> command{"gpu", "fault"};
        command.insert(command.end(), words->begin(), words->end());
        client.ask(command);
        return kDone;
    });
}

void addGpuControl(CLI::App& gpu, Client& client) {
    auto control = std::make_shared<std::string>();
    CLI::App* verb = gpu.add_subcommand(
        "control", "Change whether dumps may be taken; a fault that waited for it is collected");
    verb->add_option("C", *control, "0 says yes")->required();
    client.onVerb(verb, serviceExits(kNotCarriedOut), [&client, control] {
        client.ask({"gpu", "control", *control});
        return kDone;
    });
}

// A statistics line as a JSON object; fields that a broken line lacks are empty.
std::string statisticJson(const std::string& line) {
    std::istringstream text(line);
    nlohmann::ordered_json object;
    for (const char* key :
         {"code", "event_id", "event", "kind", "time_ms", "result", "count", "source"}) {
        std::string field;
        std::getline(text, field, '\t');
        const bool number = !field.empty() && field.size() < 19 &&
                            field.find_first_not_of("-0123456789") == std::string::npos;
        if (number) {
            object[key] = strtoll(field.c_str(), nullptr, 10);
        } else {
            object[key] = field;
        }
    }
    return jsonLine(object);
}

std::string statisticText(std::string line) {
    std::replace(line.begin(), line.end(), '\t', ' ');
    return escaped(line);
}

int showStatistics(Client& client, bool json) {
    const auto text = client.phone().stats().read();
    if (!text) throw Failure(kFailed, std::string("stats: cannot be read: ") + strerror(errno));
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);) {
        puts(json ? statisticJson(line).c_str() : statisticText(line).c_str());
    }
    return kDone;
}

struct Advance {
    std::string seconds;
    std::string sleepers;
};

int advance(Client& client, const Advance& asked) {
    if (!asked.sleepers.empty()) client.ask({"clock", "await-sleepers", asked.sleepers});
    client.ask({"clock", "advance", asked.seconds});
    return kDone;
}

void addClock(CLI::App& app, Client& client) {
    CLI::App* clock = app.add_subcommand("clock", "Change the clock of the service's process");
    Client::needsVerb(clock);
    auto asked = std::make_shared<Advance>();
    CLI::App* verb = clock->add_subcommand(
        "advance", "Move it on: who sleeps on it wakes when its time has come");
    verb->add_option("SECONDS", asked->seconds, "A fraction is taken")
        ->required()
        ->check(secondsFrom(0));
    verb->add_option("--sleepers", asked->sleepers,
                     "First wait until so many threads sleep on it, at most 20 s")
        ->check(CLI::Range(1, INT32_MAX))
        ->type_name("N");
    client.onVerb(verb, serviceExits(kNotCarriedOut, "too few threads sleep within 20 s"),
                  [&client, asked] { return advance(client, *asked); });
}

}  // namespace

void addGpuVerbs(CLI::App& app, Client& client) {
    CLI::App* gpu = app.add_subcommand("gpu", "Have the graphics driver report something");
    Client::needsVerb(gpu);
    addGpuFault(*gpu, client);
    addGpuControl(*gpu, client);
    CLI::App* await = gpu->add_subcommand(
        "await", "Wait until the service waits for the next fault, at most 60 s");
    client.onVerb(await, serviceExits(kNotCarriedOut, "does not wait for a fault within 60 s"),
                  [&client] {
                      client.ask({"gpu", "await-reader"});
                      return kDone;
                  });
    addClock(app, client);

    auto json = std::make_shared<bool>(false);
    CLI::App* stats = app.add_subcommand("stats", "Show what the statistics collector was given");
    stats->add_flag("--json", *json,
                    "A JSON object a line: code, event_id, event, kind, time_ms, result, count, "
                    "source");
    client.onVerb(stats, phoneExits("the statistics cannot be read, or the output not be written"),
                  [&client, json] { return showStatistics(client, *json); });
}

}  // namespace pelto
